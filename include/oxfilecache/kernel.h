// The host kernel: everything the module needs from the process it is loaded into.
//
// The host implements this interface and hands it over with IOxModule_OxModule_PutKernel before it
// calls anything else. The module reaches the host through the table of virtual operations alone,
// so the order and the argument types below are the binary contract: never reorder, insert or drop
// an operation.
//
// Threads: the module calls from whichever thread the host used to enter it, possibly several at
// once; every operation must be safe for that. The module holds its own mutexes during most calls,
// so an operation must not call back into the module.
#ifndef OXFILECACHE_KERNEL_H_
#define OXFILECACHE_KERNEL_H_

#include <cstddef>
#include <cstdint>

class IOxMutex;

// The table of what the host does for the module. The host owns the kernel, which must outlive the
// module and every string. Results say whether it worked; nothing may be thrown.
//
// Threads: every operation from any thread, also several at once.
class IOxKernel {
 public:
  // The interface of that name, or null. The module asks once per manager, for "IFileSystem", and
  // expects an IFileSystem*. The host keeps ownership.
  virtual void* GetInterface(const char* name) = 0;

  // Hands back what GetInterface returned.
  virtual void ReleaseInterface(void* interface) = 0;

  // A fresh, unlocked, recursive mutex: a thread that holds it may lock it again and unlocks it as
  // often. The module gives it back with DestroyMutex.
  virtual IOxMutex* CreateMutex() = 0;
  // Takes a mutex back, unlocked.
  virtual void DestroyMutex(IOxMutex* mutex) = 0;

  // A block of at least `bytes` bytes, aligned for any 8-byte type, or null when there is no
  // memory. `file` and `line` are the caller's source position for the host's accounting; the
  // module's own requests pass null and 0. Buffers of strings cross between host and module, so
  // both must take memory from the same kernel.
  virtual void* Allocate(std::size_t bytes, const char* file, int line) = 0;
  // Takes back a block from Allocate, on whichever side of the border it was asked for.
  virtual void Free(void* block, const char* file, int line) = 0;

  // As memset(3): sets each of the bytes to the low 8 bits of `value`. Gives `dst`.
  virtual void* MemSet(void* dst, int value, std::size_t bytes) = 0;
  // As memcpy(3): the two regions never overlap. Gives `dst`.
  virtual void* MemCopy(void* dst, const void* src, std::size_t bytes) = 0;
  // The number of 16-bit units before the first that is 0.
  virtual std::size_t StrLen16(const std::uint16_t* text) = 0;
  // As strlen(3): the number of bytes before the NUL.
  virtual std::size_t StrLen(const char* text) = 0;
  // As strcmp(3). The module asks only whether the result is 0, which means that the texts are
  // equal.
  virtual int StrCmp(const char* a, const char* b) = 0;
  // As strcpy(3): copies the NUL too. `dst` has room for it. Gives `dst`.
  virtual char* StrCpy(char* dst, const char* src) = 0;
  // As strstr(3): the first place of `needle` in `haystack`, or null.
  virtual const char* StrStr(const char* haystack, const char* needle) = 0;
  // As strtoul(3), which gives the largest value for a number that is too large. The module asks
  // for base 10 and passes null for `end`.
  virtual unsigned long StrToUL(const char* text, char** end, int base) = 0;

  // The kernel that the module holds, null before the first PutKernel. Exported by the module; a
  // host that links only the shared runtime code has no use for it.
  __attribute__((visibility("default"))) static IOxKernel* GetKernel();

 protected:
  // Not virtual: a destructor in the table would shift what old hosts compiled in.
  ~IOxKernel() = default;
};

namespace ox {

// The kernel pointer of this copy of the runtime code. The module and each host link their own
// copy, so each has its own pointer. Both must point at the same kernel while strings cross between
// them. Null until SetKernel.
IOxKernel* Kernel();

// A host calls this once, before its first OxString or tagged allocation; inside the module only
// PutKernel does. Takes no lock.
void SetKernel(IOxKernel* kernel);

}  // namespace ox

#endif

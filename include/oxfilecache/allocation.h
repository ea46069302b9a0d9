// Tagged allocation: every object and buffer comes from the kernel through one of these operators
// and goes back through the matching delete, with the same selector.
//
// Each block is 8 bytes longer than asked for. The caller's address is 8 bytes past the block's
// start; the second 32-bit word of that header holds a kind: 1 for new-delete, the first size
// factor for vector-new-delete, 0 for malloc-free. The first word stays as the kernel returned it.
// Hosts read the kind word in their heap dumps.
//
// A request of 0 bytes gives null and does not reach the kernel. The operators are noexcept, so a
// null skips the constructor of a new-expression.
//
// Threads: any. A block may be freed on another thread, and by the other side of the border, than
// the one that took it.
#ifndef OXFILECACHE_ALLOCATION_H_
#define OXFILECACHE_ALLOCATION_H_

#include <cstddef>
#include <cstdint>

// Selectors are null pointers of these types; they only choose the overload.
struct OxMem_Selector_OX_NEW_DELETE;
struct OxMem_Selector_OX_VECTOR_NEW_DELETE;
struct OxMem_Selector_OX_MALLOC_FREE;

// A block of `size` bytes for one object; null when there is no memory. `file` and `line`, the
// place in the caller's source, go to IOxKernel::Allocate as they are.
void* operator new(std::size_t size, const char* file, int line,
                   OxMem_Selector_OX_NEW_DELETE*) noexcept;
// Gives such a block back and calls no destructor. Null does nothing. `file` and `line` go to
// IOxKernel::Free.
void operator delete(void* p, const char* file, int line, OxMem_Selector_OX_NEW_DELETE*) noexcept;

// a * b bytes; `size` is not used. A product that overflows gives null.
void* operator new(std::size_t size, std::size_t a, std::size_t b, const char* file, int line,
                   OxMem_Selector_OX_VECTOR_NEW_DELETE*) noexcept;
// Gives such a block back and calls no destructor. Null does nothing; `a` and `b` are not used.
void operator delete(void* p, std::size_t a, std::size_t b, const char* file, int line,
                     OxMem_Selector_OX_VECTOR_NEW_DELETE*) noexcept;

// n bytes; `size` is not used.
void* operator new(std::size_t size, std::size_t n, const char* file, int line,
                   OxMem_Selector_OX_MALLOC_FREE*) noexcept;
// Gives such a block back. Null does nothing; `n` is not used.
void operator delete(void* p, std::size_t n, const char* file, int line,
                     OxMem_Selector_OX_MALLOC_FREE*) noexcept;

// Always null. The array forms exist because other modules of the framework link them.
void* operator new[](std::size_t size, const char* file, int line,
                     OxMem_Selector_OX_NEW_DELETE*) noexcept;
// Does nothing.
void operator delete[](void* p, const char* file, int line, OxMem_Selector_OX_NEW_DELETE*) noexcept;
// Always null.
void* operator new[](std::size_t size, std::size_t a, std::size_t b, const char* file, int line,
                     OxMem_Selector_OX_VECTOR_NEW_DELETE*) noexcept;
// Does nothing.
void operator delete[](void* p, std::size_t a, std::size_t b, const char* file, int line,
                       OxMem_Selector_OX_VECTOR_NEW_DELETE*) noexcept;
// Always null.
void* operator new[](std::size_t size, std::size_t n, const char* file, int line,
                     OxMem_Selector_OX_MALLOC_FREE*) noexcept;
// Does nothing.
void operator delete[](void* p, std::size_t n, const char* file, int line,
                       OxMem_Selector_OX_MALLOC_FREE*) noexcept;

// Destroys and frees one object made with the new-delete selector. Null does nothing. The class's
// own deleting destructor must not be used on such an object: its block begins 8 bytes earlier.
template <typename T>
void OxTypes_ScalarDelete(T* p, const char* file, int line) {
  if (p == nullptr) return;
  p->~T();
  operator delete(p, file, line, static_cast<OxMem_Selector_OX_NEW_DELETE*>(nullptr));
}

namespace ox {

// Constructs a T in memory of the new-delete selector; null when there is none.
template <typename T, typename... Args>
T* NewObject(Args&&... args) {
  return new (nullptr, 0, static_cast<OxMem_Selector_OX_NEW_DELETE*>(nullptr))
      T(static_cast<Args&&>(args)...);
}

// Destroys an object from NewObject and gives its memory back. Null does nothing.
template <typename T>
void DeleteObject(T* p) {
  OxTypes_ScalarDelete(p, nullptr, 0);
}

// Raw bytes of the malloc-free selector; null when there are none, or for 0 bytes.
void* AllocateBytes(std::size_t bytes);
// Gives back what AllocateBytes gave. Null does nothing.
void FreeBytes(void* p);

// Tells whether any request of this copy of the runtime failed since the watch was made. Operations
// that build a path out of several strings look once at the end, since a path with a piece missing
// names another file. A failure on another thread trips the watch too, which only makes the
// operation refuse.
class AllocationWatch {
 public:
  // Begins to watch.
  AllocationWatch();
  // True when a request has failed since then.
  bool Tripped() const;

 private:
  std::uint32_t failuresAtStart_;
};

}  // namespace ox

#endif

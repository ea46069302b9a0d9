// A host in memory: files in a list, a log of every call, faults on demand, and a registry of what
// the module has taken and not given back.
#ifndef OX_TESTS_SUPPORT_RECORDING_HOST_H_
#define OX_TESTS_SUPPORT_RECORDING_HOST_H_

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/fault_driver.h"
#include <oxfilecache/file_system.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/mutex.h>

namespace ox::testing {

class RecordingFile;
struct RecordingMutex;

struct StoredFile {
  std::string path;
  std::string bytes;
  bool isDirectory = false;
};

class RecordingHost final : public IOxKernel, public IFileSystem {
 public:
  RecordingHost();
  ~RecordingHost();

  // The files, enumerated in the order of the list.
  std::vector<StoredFile> files;
  StoredFile* FindFile(const std::string& path);
  void WriteFile(const std::string& path, const std::string& bytes);
  void DeleteFile(const std::string& path);
  // All paths with their bytes.
  std::map<std::string, std::string> Disk() const;

  std::string defaultDirectory = "/c";
  bool hasDefaultDirectory = true;
  // What Read claims to have read, when not 0; and extra bits on every size of a file.
  std::uint64_t claimedRead = 0;
  std::uint64_t highBits = 0;
  // Where set, StrCmp finds nothing equal.
  bool comparesNothingEqual = false;

  FaultDriver memoryFaults;
  FaultDriver fileFaults;
  FaultDriver serviceFaults;  // of interfaces and mutexes

  // The calls on mutexes and files since the last TakeLog, one a line. Mutexes are named F, E, M in
  // the order of their making: factory, entries, manager.
  std::string TakeLog() { return std::exchange(log_, {}); }
  void Log(const std::string& line) { log_ += line + "\n"; }

  std::size_t LiveBlocks() const { return blocks_.size(); }
  std::size_t LiveMutexes() const { return mutexes_.size(); }
  std::size_t LiveFiles() const { return openFiles_.size(); }
  bool EveryMutexIsFree() const;
  // What was asked for the block of which the caller sees `p`.
  std::size_t SizeOfBlock(void* p) const { return blocks_.at(static_cast<char*>(p) - 8); }

  // IOxKernel
  void* GetInterface(const char* name) override;
  void ReleaseInterface(void* interface) override;
  IOxMutex* CreateMutex() override;
  void DestroyMutex(IOxMutex* mutex) override;
  void* Allocate(std::size_t bytes, const char* file, int line) override;
  void Free(void* block, const char* file, int line) override;
  void* MemSet(void* dst, int value, std::size_t bytes) override {
    return std::memset(dst, value, bytes);
  }
  void* MemCopy(void* dst, const void* src, std::size_t bytes) override;
  std::size_t StrLen16(const std::uint16_t* text) override;
  std::size_t StrLen(const char* text) override { return std::strlen(text); }
  int StrCmp(const char* a, const char* b) override {
    return comparesNothingEqual ? 1 : std::strcmp(a, b);
  }
  char* StrCpy(char* dst, const char* src) override { return std::strcpy(dst, src); }
  const char* StrStr(const char* haystack, const char* needle) override {
    return std::strstr(haystack, needle);
  }
  unsigned long StrToUL(const char* text, char** end, int base) override;

  // IFileSystem
  os::filesystem::File* CreateFile() override;
  void DestroyFile(os::filesystem::File* file) override;
  int GetDefaultDirectory(OxString& out) override;

 private:
  friend class RecordingFile;

  std::string log_;
  std::map<void*, std::size_t> blocks_;
  std::map<IOxMutex*, std::unique_ptr<RecordingMutex>> mutexes_;
  std::map<os::filesystem::File*, std::unique_ptr<RecordingFile>> openFiles_;
  std::size_t mutexesMade_ = 0;
};

}  // namespace ox::testing

#endif

// A kernel that passes everything on to another one, and counts what the module holds of it.
#ifndef OX_BENCH_COUNTING_KERNEL_H_
#define OX_BENCH_COUNTING_KERNEL_H_

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <oxfilecache/file_system.h>
#include <oxfilecache/kernel.h>

namespace ox::bench {

struct KernelCounts {
  std::uint64_t blocks;       // live blocks of memory
  std::uint64_t bytes;        // live bytes, as asked for
  std::uint64_t mutexes;      // live mutexes
  std::uint64_t files;        // live file objects
  std::uint64_t allocations;  // successful requests since the start
};

class CountingKernel : public IOxKernel, private IFileSystem {
 public:
  explicit CountingKernel(IOxKernel& inner) : inner_(inner) {}
  CountingKernel(const CountingKernel&) = delete;
  CountingKernel& operator=(const CountingKernel&) = delete;

  KernelCounts Counts() const {
    return {allocations_ - frees_, bytes_, mutexes_, files_, allocations_};
  }
  std::uint64_t Held() const { return allocations_ - frees_ + bytes_ + mutexes_ + files_; }

  void* GetInterface(const char* name) override {
    fileSystem_ = static_cast<IFileSystem*>(inner_.GetInterface(name));
    return fileSystem_ != nullptr ? static_cast<IFileSystem*>(this) : nullptr;
  }
  void ReleaseInterface(void* /*interface*/) override { inner_.ReleaseInterface(fileSystem_); }

  IOxMutex* CreateMutex() override {
    ++mutexes_;
    return inner_.CreateMutex();
  }
  void DestroyMutex(IOxMutex* mutex) override {
    --mutexes_;
    inner_.DestroyMutex(mutex);
  }

  void* Allocate(std::size_t bytes, const char* file, int line) override {
    if (bytes > SIZE_MAX - sizeof(Header)) return nullptr;
    auto* header = static_cast<Header*>(inner_.Allocate(sizeof(Header) + bytes, file, line));
    if (header == nullptr) return nullptr;
    header->bytes = bytes;
    bytes_ += bytes;
    ++allocations_;
    return header + 1;
  }
  void Free(void* block, const char* file, int line) override {
    if (block == nullptr) return;
    Header* header = static_cast<Header*>(block) - 1;
    bytes_ -= header->bytes;
    ++frees_;
    inner_.Free(header, file, line);
  }

  void* MemSet(void* dst, int value, std::size_t bytes) override {
    return inner_.MemSet(dst, value, bytes);
  }
  void* MemCopy(void* dst, const void* src, std::size_t bytes) override {
    return inner_.MemCopy(dst, src, bytes);
  }
  std::size_t StrLen16(const std::uint16_t* text) override { return inner_.StrLen16(text); }
  std::size_t StrLen(const char* text) override { return inner_.StrLen(text); }
  int StrCmp(const char* a, const char* b) override { return inner_.StrCmp(a, b); }
  char* StrCpy(char* dst, const char* src) override { return inner_.StrCpy(dst, src); }
  const char* StrStr(const char* haystack, const char* needle) override {
    return inner_.StrStr(haystack, needle);
  }
  unsigned long StrToUL(const char* text, char** end, int base) override {
    return inner_.StrToUL(text, end, base);
  }

 private:
  // In front of each block, and as wide as the strictest alignment, which keeps the block aligned.
  struct alignas(std::max_align_t) Header {
    std::size_t bytes;
  };

  os::filesystem::File* CreateFile() override {
    os::filesystem::File* file = fileSystem_->CreateFile();
    if (file != nullptr) ++files_;
    return file;
  }
  void DestroyFile(os::filesystem::File* file) override {
    if (file != nullptr) --files_;
    fileSystem_->DestroyFile(file);
  }
  int GetDefaultDirectory(OxString& out) override { return fileSystem_->GetDefaultDirectory(out); }

  IOxKernel& inner_;
  IFileSystem* fileSystem_ = nullptr;
  std::atomic<std::uint64_t> allocations_{0};
  std::atomic<std::uint64_t> frees_{0};
  std::atomic<std::uint64_t> bytes_{0};
  std::atomic<std::uint64_t> mutexes_{0};
  std::atomic<std::uint64_t> files_{0};
};

}  // namespace ox::bench

#endif

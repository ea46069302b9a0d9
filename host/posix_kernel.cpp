#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "host/posix_mutex.h"
#include <oxfilecache/host.h>

namespace ox::host {

using internal::PosixMutex;
namespace {

// In front of each block, so that Free knows what it takes off the count. As wide as the strictest
// alignment, which keeps the block itself aligned.
struct alignas(std::max_align_t) BlockHeader {
  std::size_t bytes;
};

}  // namespace

PosixKernel::PosixKernel(std::string defaultDirectory)
    : ownFileSystem_(std::move(defaultDirectory)), fileSystem_(&ownFileSystem_) {}

KernelCounts PosixKernel::Counts() const {
  const std::uint64_t frees = frees_.load();
  const std::uint64_t allocations = allocations_.load();
  return {allocations - frees, bytes_.load(), mutexes_.load(), ownFileSystem_.LiveFiles(),
          allocations};
}

void* PosixKernel::GetInterface(const char* name) {
  return std::strcmp(name, "IFileSystem") == 0 ? fileSystem_ : nullptr;
}

// The last thing that a manager does.
void PosixKernel::ReleaseInterface(void* /*interface*/) {
  ownFileSystem_.LeaveDirectories();
}

IOxMutex* PosixKernel::CreateMutex() {
  auto* mutex = new (std::nothrow) PosixMutex;
  if (mutex != nullptr) mutexes_.fetch_add(1, std::memory_order_relaxed);
  return mutex;
}

void PosixKernel::DestroyMutex(IOxMutex* mutex) {
  if (mutex == nullptr) return;
  delete static_cast<PosixMutex*>(mutex);
  mutexes_.fetch_sub(1, std::memory_order_relaxed);
}

void* PosixKernel::Allocate(std::size_t bytes, const char* /*file*/, int /*line*/) {
  if (bytes > SIZE_MAX - sizeof(BlockHeader)) return nullptr;
  auto* header = static_cast<BlockHeader*>(std::malloc(sizeof(BlockHeader) + bytes));
  if (header == nullptr) return nullptr;
  header->bytes = bytes;
  bytes_.fetch_add(bytes, std::memory_order_relaxed);
  allocations_.fetch_add(1, std::memory_order_relaxed);
  return header + 1;
}

void PosixKernel::Free(void* block, const char* /*file*/, int /*line*/) {
  if (block == nullptr) return;
  BlockHeader* header = static_cast<BlockHeader*>(block) - 1;
  frees_.fetch_add(1, std::memory_order_relaxed);
  bytes_.fetch_sub(header->bytes, std::memory_order_relaxed);
  std::free(header);
}

void* PosixKernel::MemSet(void* dst, int value, std::size_t bytes) {
  return std::memset(dst, value, bytes);
}

void* PosixKernel::MemCopy(void* dst, const void* src, std::size_t bytes) {
  return std::memcpy(dst, src, bytes);
}

std::size_t PosixKernel::StrLen16(const std::uint16_t* text) {
  // Four units to a turn: the module measures every text that it copies.
  for (std::size_t length = 0;; length += 4) {
    const std::uint16_t* units = text + length;
    if (units[0] == 0) return length;
    if (units[1] == 0) return length + 1;
    if (units[2] == 0) return length + 2;
    if (units[3] == 0) return length + 3;
  }
}

std::size_t PosixKernel::StrLen(const char* text) {
  return std::strlen(text);
}

int PosixKernel::StrCmp(const char* a, const char* b) {
  return std::strcmp(a, b);
}

char* PosixKernel::StrCpy(char* dst, const char* src) {
  return std::strcpy(dst, src);
}

const char* PosixKernel::StrStr(const char* haystack, const char* needle) {
  return std::strstr(haystack, needle);
}

unsigned long PosixKernel::StrToUL(const char* text, char** end, int base) {
  return std::strtoul(text, end, base);
}

}  // namespace ox::host

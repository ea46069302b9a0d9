#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "host/posix_mutex.h"
#include <oxfilecache/host.h>

namespace ox::host {

using internal::PosixMutex;

PosixKernel::PosixKernel(std::string defaultDirectory)
    : ownFileSystem_(std::move(defaultDirectory)), fileSystem_(&ownFileSystem_) {}

void* PosixKernel::GetInterface(const char* name) {
  return std::strcmp(name, "IFileSystem") == 0 ? fileSystem_ : nullptr;
}

// The manager calls this when it is destroyed. Until another one starts no file is used.
void PosixKernel::ReleaseInterface(void* /*interface*/) {
  ownFileSystem_.CloseDirectories();
}

IOxMutex* PosixKernel::CreateMutex() {
  return new (std::nothrow) PosixMutex;
}

void PosixKernel::DestroyMutex(IOxMutex* mutex) {
  delete static_cast<PosixMutex*>(mutex);
}

void* PosixKernel::Allocate(std::size_t bytes, const char* /*file*/, int /*line*/) {
  return std::malloc(bytes);
}

void PosixKernel::Free(void* block, const char* /*file*/, int /*line*/) {
  std::free(block);
}

void* PosixKernel::MemSet(void* dst, int value, std::size_t bytes) {
  return std::memset(dst, value, bytes);
}

void* PosixKernel::MemCopy(void* dst, const void* src, std::size_t bytes) {
  return std::memcpy(dst, src, bytes);
}

std::size_t PosixKernel::StrLen16(const std::uint16_t* text) {
  // Four units in each turn, for speed: the module measures every text that it copies.
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

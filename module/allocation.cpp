#include <atomic>

#include <oxfilecache/allocation.h>
#include <oxfilecache/kernel.h>

namespace {

constexpr std::size_t kHeaderBytes = 8;
constexpr std::size_t kKindWord = 1;

std::atomic<std::uint32_t> failedRequests{0};

void* AllocateTagged(std::size_t bytes, std::size_t kind, const char* file, int line) {
  if (bytes == 0) return nullptr;
  IOxKernel* kernel = ox::Kernel();
  const bool representable = bytes <= SIZE_MAX - kHeaderBytes;
  void* block = kernel != nullptr && representable
                    ? kernel->Allocate(bytes + kHeaderBytes, file, line)
                    : nullptr;
  if (block == nullptr) {
    failedRequests.fetch_add(1, std::memory_order_relaxed);
    return nullptr;
  }
  static_cast<std::uint32_t*>(block)[kKindWord] = static_cast<std::uint32_t>(kind);
  return static_cast<char*>(block) + kHeaderBytes;
}

void FreeTagged(void* p, const char* file, int line) {
  if (p == nullptr) return;
  ox::Kernel()->Free(static_cast<char*>(p) - kHeaderBytes, file, line);
}

}  // namespace

void* operator new(std::size_t size, const char* file, int line,
                   OxMem_Selector_OX_NEW_DELETE*) noexcept {
  return AllocateTagged(size, 1, file, line);
}

void operator delete(void* p, const char* file, int line, OxMem_Selector_OX_NEW_DELETE*) noexcept {
  FreeTagged(p, file, line);
}

void* operator new(std::size_t, std::size_t a, std::size_t b, const char* file, int line,
                   OxMem_Selector_OX_VECTOR_NEW_DELETE*) noexcept {
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(a, b, &bytes)) return nullptr;
  return AllocateTagged(bytes, a, file, line);
}

void operator delete(void* p, std::size_t, std::size_t, const char* file, int line,
                     OxMem_Selector_OX_VECTOR_NEW_DELETE*) noexcept {
  FreeTagged(p, file, line);
}

void* operator new(std::size_t, std::size_t n, const char* file, int line,
                   OxMem_Selector_OX_MALLOC_FREE*) noexcept {
  return AllocateTagged(n, 0, file, line);
}

void operator delete(void* p, std::size_t, const char* file, int line,
                     OxMem_Selector_OX_MALLOC_FREE*) noexcept {
  FreeTagged(p, file, line);
}

void* operator new[](std::size_t, const char*, int, OxMem_Selector_OX_NEW_DELETE*) noexcept {
  return nullptr;
}

void operator delete[](void*, const char*, int, OxMem_Selector_OX_NEW_DELETE*) noexcept {}

void* operator new[](std::size_t, std::size_t, std::size_t, const char*, int,
                     OxMem_Selector_OX_VECTOR_NEW_DELETE*) noexcept {
  return nullptr;
}

void operator delete[](void*, std::size_t, std::size_t, const char*, int,
                       OxMem_Selector_OX_VECTOR_NEW_DELETE*) noexcept {}

void* operator new[](std::size_t, std::size_t, const char*, int,
                     OxMem_Selector_OX_MALLOC_FREE*) noexcept {
  return nullptr;
}

void operator delete[](void*, std::size_t, const char*, int,
                       OxMem_Selector_OX_MALLOC_FREE*) noexcept {}

namespace ox {

void* AllocateBytes(std::size_t bytes) {
  return operator new(0, bytes, nullptr, 0, static_cast<OxMem_Selector_OX_MALLOC_FREE*>(nullptr));
}

void FreeBytes(void* p) {
  operator delete (p, std::size_t{0}, nullptr, 0,
                   static_cast<OxMem_Selector_OX_MALLOC_FREE*>(nullptr));
}

AllocationWatch::AllocationWatch()
    : failuresAtStart_(failedRequests.load(std::memory_order_relaxed)) {}

bool AllocationWatch::Tripped() const {
  return failedRequests.load(std::memory_order_relaxed) != failuresAtStart_;
}

}  // namespace ox

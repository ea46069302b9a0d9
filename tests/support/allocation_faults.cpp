// The allocations of C++ and of the host kit's kernel, on their way to the C library.
#include <cstdlib>
#include <new>

#include "tests/support/system_calls.h"

namespace ox::testing {

FaultDriver allocationFaults;

}  // namespace ox::testing

using ox::testing::allocationFaults;

extern "C" {

// The linker sends the kernel's here.
void* __real_malloc(std::size_t bytes);
void* __wrap_malloc(std::size_t bytes);
void* __wrap_malloc(std::size_t bytes) {
  return allocationFaults.Next() ? nullptr : __real_malloc(bytes);
}

}  // extern "C"

void* operator new(std::size_t bytes) {
  void* block = allocationFaults.Next() ? nullptr : __real_malloc(bytes);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new(std::size_t bytes, const std::nothrow_t& /*tag*/) noexcept {
  return allocationFaults.Next() ? nullptr : __real_malloc(bytes);
}

// Under AddressSanitizer those of arrays do not call the ones above.
void* operator new[](std::size_t bytes) {
  return operator new(bytes);
}

void* operator new[](std::size_t bytes, const std::nothrow_t& tag) noexcept {
  return operator new(bytes, tag);
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete[](void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t /*bytes*/) noexcept {
  std::free(block);
}

void operator delete[](void* block, std::size_t /*bytes*/) noexcept {
  std::free(block);
}

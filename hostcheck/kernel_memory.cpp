// Blocks of memory, and the two primitives that work on them.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <thread>
#include <vector>

#include "hostcheck/check.h"

namespace ox::hostcheck::internal {
namespace {

constexpr std::uintptr_t kAlignment = 8;

void* AllocateOrThrow(Run& run, std::size_t bytes) {
  void* block = run.Kernel().Allocate(bytes, __FILE__, __LINE__);
  Expect(block != nullptr, "Allocate gave null for " + std::to_string(bytes) + " bytes");
  return block;
}

void Release(Run& run, void* block) {
  run.Kernel().Free(block, __FILE__, __LINE__);
}

bool HoldsOnly(const void* block, int value, std::size_t bytes) {
  const auto* p = static_cast<const unsigned char*>(block);
  for (std::size_t i = 0; i < bytes; ++i) {
    if (p[i] != value) return false;
  }
  return true;
}

void AlignsBlocks(Run& run) {
  std::vector<void*> blocks;
  for (std::size_t bytes = 1; bytes <= 5000; bytes += bytes < 70 ? 1 : 977) {
    void* block = AllocateOrThrow(run, bytes);
    const auto rest = reinterpret_cast<std::uintptr_t>(block) % kAlignment;
    Expect(rest == 0, "a block of " + std::to_string(bytes) + " bytes begins " +
                          std::to_string(rest) + " bytes past a multiple of 8");
    blocks.push_back(block);
  }
  for (void* block : blocks)
    Release(run, block);
}

// Each block is filled to its last byte and looked at after all the others were.
void KeepsBlocksApart(Run& run) {
  constexpr int kBlocks = 200;
  std::vector<void*> blocks;
  const auto bytesOf = [](int i) { return static_cast<std::size_t>(1 + i * 37 % 3000); };
  for (int i = 0; i < kBlocks; ++i) {
    blocks.push_back(AllocateOrThrow(run, bytesOf(i)));
    std::memset(blocks.back(), i, bytesOf(i));
  }
  for (int i = 0; i < kBlocks; ++i) {
    Expect(HoldsOnly(blocks[static_cast<std::size_t>(i)], i, bytesOf(i)),
           "a block changed when another one was written");
  }
  // Every second one first: the order in which blocks go back is not the order of their making.
  for (std::size_t start : {1U, 0U}) {
    for (std::size_t i = start; i < blocks.size(); i += 2)
      Release(run, blocks[i]);
  }
}

void TakesNoSource(Run& run) {
  void* block = run.Kernel().Allocate(100, nullptr, 0);
  Expect(block != nullptr, "Allocate gave null");
  std::fill_n(static_cast<char*>(block), 100, '\1');
  run.Kernel().Free(block, nullptr, 0);
}

bool AllocateRepeatedly(IOxKernel& kernel, int value) {
  for (std::size_t i = 0; i < 2000; ++i) {
    const std::size_t bytes = 1 + i % 300;
    void* block = kernel.Allocate(bytes, __FILE__, __LINE__);
    if (block == nullptr) return false;
    std::memset(block, value, bytes);
    const bool isKept = HoldsOnly(block, value, bytes);
    kernel.Free(block, __FILE__, __LINE__);
    if (!isKept) return false;
  }
  return true;
}

void WorksOnThreads(Run& run) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int value = 1; value <= 4; ++value) {
    threads.emplace_back([&, value] { failures += !AllocateRepeatedly(run.Kernel(), value); });
  }
  for (std::thread& thread : threads)
    thread.join();
  Expect(failures == 0, std::to_string(failures) +
                            " of 4 threads got null, or a block that another thread wrote to");
}

std::size_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  if (!(statm >> total >> resident)) throw Skipped("/proc/self/statm cannot be read");
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void GivesMemoryBack(Run& run) {
#if defined(__SANITIZE_ADDRESS__)
  throw Skipped("AddressSanitizer holds freed memory back");
#endif
  constexpr std::size_t kBlock = 32 * 1024;
  constexpr std::size_t kRounds = 512;
  const std::size_t before = ResidentBytes();
  for (std::size_t i = 0; i < kRounds; ++i) {
    void* block = AllocateOrThrow(run, kBlock);
    std::memset(block, 1, kBlock);
    Release(run, block);
  }
  const std::size_t after = ResidentBytes();
  Expect(after < before + kBlock * kRounds / 2,
         "the process grew by " + std::to_string((after - before) / 1024) +
             " KiB while one block of 32 KiB at a time was in use");
}

void SetsBytes(Run& run) {
  std::array<unsigned char, 40> bytes;
  bytes.fill(1);
  // Of the value only the low byte counts.
  void* result = run.Kernel().MemSet(bytes.data() + 3, 0x1A5, 21);
  Expect(HoldsOnly(bytes.data() + 3, 0xA5, 21), "not all bytes were set");
  Expect(HoldsOnly(bytes.data(), 1, 3) && HoldsOnly(bytes.data() + 24, 1, 16),
         "bytes outside were changed");
  Expect(result == bytes.data() + 3, "the result is not the destination");
  run.Kernel().MemSet(bytes.data(), 7, 0);
  Expect(bytes[0] == 1, "a count of 0 changed a byte");
}

void CopiesBytes(Run& run) {
  const std::string source("a\0b\xFF-0123456789-abcdefghij", 26);
  std::string target(40, '.');
  void* result = run.Kernel().MemCopy(target.data() + 5, source.data(), source.size());
  Expect(target == std::string(5, '.') + source + std::string(9, '.'),
         "26 bytes, a zero byte among them, became " + Quote(target));
  Expect(result == target.data() + 5, "the result is not the destination");
  run.Kernel().MemCopy(target.data(), source.data(), 0);
  Expect(target[0] == '.', "a count of 0 changed a byte");
}

constexpr char kKeepsBlocks[] = "Allocate: keeps blocks apart and what is written in them";

}  // namespace

Checks KernelMemoryChecks() {
  return {
      {"Allocate: aligns blocks to 8 bytes", {}, AlignsBlocks},
      {kKeepsBlocks, {}, KeepsBlocksApart},
      {kTakesNoSource, {}, TakesNoSource},
      {"Allocate: works on several threads at once", {kKeepsBlocks}, WorksOnThreads},
      {"Free: gives memory back", {}, GivesMemoryBack},
      {"MemSet: sets exactly the bytes asked for", {}, SetsBytes},
      {"MemCopy: copies exactly the bytes asked for", {}, CopiesBytes},
  };
}

}  // namespace ox::hostcheck::internal

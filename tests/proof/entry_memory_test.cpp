// The shared library on real files, over several lives of its manager: what an entry costs in
// memory, from the kernel's own counts, is printed and bounded, and what was stored is found again.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "bench/counting_kernel.h"
#include "tests/support/scratch_directory.h"
#include <oxfilecache/host.h>

namespace ox::testing {
namespace {

using core::cache::CacheValue;
using host::LoadedModule;
using host::ManagerReference;
using host::PosixKernel;

constexpr int kEntries = 200;

struct Shape {
  std::size_t urlBytes;
  std::size_t metadataBytes;
};

std::string UrlOf(int number, std::size_t bytes) {
  std::string url = "http://host/" + std::to_string(1000 + number);
  url.resize(bytes, 'u');
  return url;
}

void StoreAll(ManagerReference& manager, const Shape& shape) {
  const std::string metadata(shape.metadataBytes, 'm');
  for (int i = 0; i < kEntries; ++i) {
    CacheValue* value =
        manager->CreateCacheValue(UrlOf(i, shape.urlBytes).c_str(), 0, metadata.c_str());
    ASSERT_NE(nullptr, value);
    WriteWhole(value->GetFile().UTF8(), "content");
    ASSERT_TRUE(manager->Add(value));
  }
}

void Measure(const char* when, const bench::CountingKernel& kernel,
             const bench::KernelCounts& before, std::size_t texts) {
  const auto counts = kernel.Counts();
  const auto bytes = (counts.bytes - before.bytes) / kEntries;
  const auto blocks = static_cast<double>(counts.blocks - before.blocks) / kEntries;
  std::printf("  %s: %d bytes in %.2f blocks\n", when, static_cast<int>(bytes), blocks);
  // Each text twice as UTF-16 (capacity grows in steps) and once as UTF-8, and the objects.
  EXPECT_LE(bytes, 5 * texts + 400);
}

TEST(EntryMemory, IsBounded) {
  // The module keeps its first kernel.
  const ScratchDirectory scratch;
  WriteWhole(scratch / "file-cache.conf", "MAX_CACHE_ENTRIES=1000\nMAX_CACHE_SIZE=10000000\n");
  // The separator is doubled in every path, and must be in scanned paths too.
  PosixKernel inner(scratch.Path() + "/");
  bench::CountingKernel kernel(inner);
  std::string error;
  auto module = LoadedModule::Load(OX_MODULE_PATH, kernel, &error);
  ASSERT_NE(nullptr, module) << error;
  const std::size_t path = scratch.Path().size() + 2 + 32;
  for (const Shape& shape : {Shape{40, 24}, Shape{100, 200}, Shape{1000, 1000}}) {
    std::printf("URL of %zu bytes, metadata of %zu, path of %zu\n", shape.urlBytes,
                shape.metadataBytes, path);
    auto manager = std::make_unique<ManagerReference>(*module);
    const auto before = kernel.Counts();
    StoreAll(*manager, shape);
    ASSERT_FALSE(HasFatalFailure());
    Measure("stored", kernel, before, shape.urlBytes + shape.metadataBytes + path);
    manager.reset();
    manager = std::make_unique<ManagerReference>(*module);
    Measure("scanned", kernel, before, path);
    for (int i = 0; i < kEntries; ++i) {
      CacheValue* value = (*manager)->Get(UrlOf(i, shape.urlBytes).c_str());
      ASSERT_NE(nullptr, value) << i;
      EXPECT_EQ("content", ReadWhole(value->GetFile().UTF8()));
    }
    Measure("scanned and found", kernel, before, shape.urlBytes + shape.metadataBytes + path);
    for (int i = 0; i < kEntries; ++i)
      (*manager)->Remove((*manager)->Get(UrlOf(i, shape.urlBytes).c_str()));
  }
  module.reset();
  EXPECT_EQ(0U, kernel.Held());
}

}  // namespace
}  // namespace ox::testing

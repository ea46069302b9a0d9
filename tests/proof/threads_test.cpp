// Eight threads on one manager of the shipped library, all operations. Meant for ThreadSanitizer,
// which checks the order of locks too.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "bench/counting_kernel.h"
#include "tests/support/scratch_directory.h"
#include <oxfilecache/host.h>

namespace ox::testing {
namespace {

using core::cache::CacheValue;
using core::cache::FileCacheManager;
using host::LoadedModule;
using host::ManagerReference;
using host::PosixKernel;

constexpr int kThreads = 8;

unsigned Pick(std::mt19937& random, unsigned below) {
  return static_cast<unsigned>(random() % below);
}

int Rounds() {
  return std::getenv("OX_PROVE") != nullptr ? 2000 : 200;
}

void OnThreads(const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back(work, i);
  for (std::thread& thread : threads)
    thread.join();
}

// The kernel comes first and stays: the module keeps it for the life of the process.
struct Started {
  explicit Started(const std::string& configuration) {
    static const ScratchDirectory directory;
    static auto& inner = *new PosixKernel(directory.Path());
    static auto& theKernel = *new bench::CountingKernel(inner);
    kernel = &theKernel;
    WriteWhole(directory / "file-cache.conf", configuration);
    std::string error;
    module = LoadedModule::Load(OX_MODULE_PATH, theKernel, &error);
    EXPECT_NE(nullptr, module) << error;
  }
  ~Started() {
    module.reset();
    EXPECT_EQ(0U, kernel->Held());
  }

  bench::CountingKernel* kernel;
  std::unique_ptr<LoadedModule> module;
};

std::string UrlOf(int thread, unsigned number) {
  return "http://host/" + std::to_string(thread) + "/" + std::to_string(number);
}

// Each thread's entries are its own, and nothing is evicted: then lent pointers are good and may be
// looked at.
void UseOwnEntries(FileCacheManager& manager, int thread, std::mutex& dataDirectory) {
  std::mt19937 random(static_cast<unsigned>(thread));
  for (int round = 0; round < Rounds(); ++round) {
    const OxString url(UrlOf(thread, Pick(random, 5)).c_str());
    CacheValue* value = manager.Get(url);
    if (value == nullptr) {
      // Declared as empty: abandoning takes the declared size off a total that never counted it.
      value = manager.CreateCacheValue(url, 0, OxString("meta"));
      ASSERT_NE(nullptr, value);
      if (Pick(random, 4) == 0) {
        manager.DestroyCacheValue(value);
        continue;
      }
      WriteWhole(value->GetFile().UTF8(), "content");
      ASSERT_TRUE(manager.Add(value));
    }
    EXPECT_EQ(7U, value->GetSize());
    EXPECT_STREQ(url.UTF8(), value->GetURL().UTF8());
    EXPECT_STREQ("meta", value->GetMetaData().UTF8());
    if (Pick(random, 3) == 0) {
      EXPECT_TRUE(manager.Remove(value));
    }
    manager.SetMaxEntries(1000 + Pick(random, 10));
    manager.SetMaxSize(10000000 + Pick(random, 10));
    manager.SetMaxCacheValueSize(60000 + Pick(random, 10));
    EXPECT_LE(1000U, manager.GetMaxEntries());
    EXPECT_LE(10000000U, manager.GetMaxSize());
    EXPECT_LE(60000U, manager.GetMaxCacheValueSize());
    const std::lock_guard<std::mutex> lock(dataDirectory);  // the two take no lock of their own
    manager.SetDataDir(url);
    EXPECT_STREQ(url.UTF8(), manager.GetDataDir().UTF8());
  }
}

TEST(Threads, OnOneManager) {
  Started started("MAX_CACHE_ENTRIES=1000\nMAX_CACHE_SIZE=10000000\n");
  std::mutex dataDirectory;
  OnThreads([&](int thread) {
    for (int life = 0; life < 3; ++life) {
      const ManagerReference manager(*started.module);
      ASSERT_TRUE(manager);
      UseOwnEntries(*manager, thread, dataDirectory);
    }
  });
}

// All threads on the same few entries while limits evict them: only what needs no lent pointer.
TEST(Threads, OnOneManagerThatEvicts) {
  Started started("MAX_CACHE_ENTRIES=4\nMAX_CACHE_SIZE=2000\n");
  std::atomic<int> found{0};
  OnThreads([&](int thread) {
    std::mt19937 random(static_cast<unsigned>(thread));
    const ManagerReference manager(*started.module);
    for (int round = 0; round < Rounds(); ++round) {
      const OxString url(UrlOf(0, Pick(random, 8)).c_str());
      // Declared as empty, or giving entries up would soon wrap the total and refuse everything.
      CacheValue* value = manager->CreateCacheValue(url, 0, OxString("meta"));
      if (value != nullptr && Pick(random, 4) == 0) {
        manager->DestroyCacheValue(value);
      } else if (value != nullptr) {
        WriteWhole(value->GetFile().UTF8(), std::string(Pick(random, 500), 'c'));
        EXPECT_TRUE(manager->Add(value));
      }
      // Not touched: another thread may evict it at any moment.
      if (manager->Get(url) != nullptr) ++found;
      manager->SetMaxEntries(3 + Pick(random, 5));
      manager->SetMaxSize(1024 + Pick(random, 2000));
      manager->SetMaxCacheValueSize(1024 + Pick(random, 500));
    }
  });
  EXPECT_GT(found, 0);
}

}  // namespace
}  // namespace ox::testing

// Eight threads on one manager of the shipped library, and on one session, all operations. Meant
// for ThreadSanitizer; the order of locks is checked in every build.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/counting_kernel.h"
#include "tests/support/ledger.h"
#include <oxfilecache/host.h>
#include <oxfilecache/mutex.h>

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

// The module makes the factory's mutex first, then for each manager the entries' and the manager's
// own, and locks in the order factory, manager, entries.
constexpr int kFactoryRank = 0;
constexpr int kManagerRank = 1;
constexpr int kEntriesRank = 2;

std::atomic<int> locksNested{0};
std::atomic<int> locksOutOfOrder{0};
thread_local std::vector<int> held;

class RankedMutex final : public IOxMutex {
 public:
  RankedMutex(IOxMutex* mutex, int rank) : mutex_(mutex), rank_(rank) {}
  IOxMutex* Inner() const { return mutex_; }

  int Lock() override {
    const bool isAgain = std::count(held.begin(), held.end(), rank_) != 0;
    if (!held.empty()) ++locksNested;
    if (!isAgain && !held.empty() && held.back() > rank_) ++locksOutOfOrder;
    held.push_back(rank_);
    return mutex_->Lock();
  }
  int Unlock() override {
    if (held.empty() || held.back() != rank_) ++locksOutOfOrder;
    held.pop_back();
    return mutex_->Unlock();
  }

 private:
  IOxMutex* mutex_;
  const int rank_;
};

class RankingKernel final : public CountingKernel {
 public:
  using CountingKernel::CountingKernel;

  void StartOver() { mutexesMade_ = 0; }
  IOxMutex* CreateMutex() override {
    const int managerOrEntries = mutexesMade_ % 2 == 1 ? kEntriesRank : kManagerRank;
    const int rank = mutexesMade_ == 0 ? kFactoryRank : managerOrEntries;
    ++mutexesMade_;
    return new RankedMutex(CountingKernel::CreateMutex(), rank);
  }
  void DestroyMutex(IOxMutex* mutex) override {
    auto* const ranked = static_cast<RankedMutex*>(mutex);
    CountingKernel::DestroyMutex(ranked->Inner());
    delete ranked;
  }

 private:
  int mutexesMade_ = 0;
};

// The kernel comes first and stays: the module keeps it for the life of the process.
struct Started {
  Started(const std::string& configuration) {
    static auto& inner = *new PosixKernel(StaticDirectory());
    static auto& theKernel = *new RankingKernel(inner);
    kernel = &theKernel;
    theKernel.StartOver();
    WriteWhole(StaticDirectory() + "/file-cache.conf", configuration);
    std::string error;
    module = LoadedModule::Load(OX_MODULE_PATH, theKernel, &error);
    EXPECT_NE(nullptr, module) << error;
  }
  ~Started() {
    module.reset();
    EXPECT_EQ(0U, kernel->Held());
    EXPECT_EQ(0, locksOutOfOrder);
    EXPECT_GT(locksNested, 0);
  }
  static const std::string& StaticDirectory() {
    static const ScratchDirectory directory;
    return directory.Path();
  }

  RankingKernel* kernel;
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

TEST(Threads, OnOneSession) {
  const ScratchDirectory scratch;
  WriteWhole(scratch / "file-cache.conf", "MAX_CACHE_ENTRIES=6\nMAX_CACHE_SIZE=9000\n");
  const auto session = OpenSession(OptionsFor(scratch.Path()));
  std::atomic<int> version{0};
  std::atomic<int> found{0};
  std::atomic<int> stored{0};
  OnThreads([&](int thread) {
    std::mt19937 random(static_cast<unsigned>(thread));
    Error mine;
    for (int round = 0; round < Rounds() / 2; ++round) {
      const std::string url = UrlOf(0, Pick(random, 10));
      Ledger ignored;
      if (Store(*session, url, ++version, &ignored)) ++stored;
      const int fetched = FetchVersion(*session, UrlOf(0, Pick(random, 10)), &mine);
      EXPECT_LE(0, fetched) << mine.Message();
      found += fetched > 0 ? 1 : 0;
      if (Pick(random, 8) == 0) {
        mine = session->Remove(url);
        EXPECT_TRUE(!mine || mine.kind == ErrorKind::kNotFound) << mine.Message();
      }
      if (Pick(random, 32) == 0) {
        EXPECT_FALSE(session->Trim(nullptr));
      }
      EXPECT_LE(session->Statistics().entries, 6U);
      EXPECT_EQ(6U, session->Limits().maxEntries);
    }
  });
  std::printf("%d stored, %d found\n", stored.load(), found.load());
  EXPECT_EQ(version, stored);
  EXPECT_GT(found, 0);
}

}  // namespace
}  // namespace ox::testing

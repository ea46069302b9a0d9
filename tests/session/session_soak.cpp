// A long run: four threads store, fetch, remove and give up entries at random on a small cache, and
// everything that a session promises is checked on the way. Then the same load goes through the
// bare manager, to show when that first refuses an entry that fits the limits.
//
//   session_soak [OPERATIONS]      default 1,000,000
//
// Content follows from URL and version, and both are in the metadata. Each URL is written by one
// thread and read by all, so a version older than one that was committed before is a fault.
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <thread>

#include "tests/support/session_rig.h"
#include <oxfilecache/host.h>

namespace ox::testing {
namespace {

constexpr Limits kLimits{65536, 20, 8192};
constexpr unsigned kThreads = 4;
constexpr unsigned kUrls = 48;
constexpr std::size_t kLongestContent = 6000;

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "FAULT: %s\n", what.c_str());
  std::_Exit(1);
}

std::string UrlOf(unsigned number) {
  return "http://host/" + std::to_string(number);
}

std::string ContentOf(unsigned url, std::uint64_t version) {
  const std::uint64_t seed = version * kUrls + url;
  return Bytes(seed, static_cast<std::size_t>(1 + seed * 2654435761u % kLongestContent));
}

std::string MetaDataOf(unsigned url, std::uint64_t version) {
  const std::string padding(static_cast<std::size_t>(version * 37 % 200), '.');
  return std::to_string(url) + " " + std::to_string(version) + " " + padding;
}

class Soak {
 public:
  explicit Soak(std::uint64_t operations) : left_(static_cast<std::int64_t>(operations)) {}

  void Run() {
    session_ = OpenSession(OptionsFor(directory_.Path()));
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i)
      threads.emplace_back([this, i] { Work(i); });
    for (std::thread& thread : threads)
      thread.join();
    Measure();
    const session::SessionStatistics statistics = session_->Statistics();
    std::printf("session: %" PRIu64 " commits, %" PRIu64 " given up, %" PRIu64 " found, %" PRIu64
                " not found, %" PRIu64 " removals, none refused\n",
                commits_.load(), dropped_.load(), hits_.load(), misses_.load(), removals_.load());
    std::printf("session: %" PRIu64 " evicted, %" PRIu64 " restarts of the manager\n",
                statistics.trimmed, statistics.restarts);
    std::printf("session: disk use at most %" PRIu64 " of %" PRIu64 " + %" PRIu64
                " bytes, measured %" PRIu64 " times\n",
                mostOnDisk_, kLimits.size, kLimits.entrySize, measurements_);
    CheckRestart();
  }

 private:
  // Every call of the session, so that the disk can be measured between calls. Several run at once.
  template <typename Call>
  auto Do(Call call) {
    const std::shared_lock<std::shared_mutex> lock(calls_);
    return call();
  }

  void Work(unsigned thread) {
    std::mt19937 random(thread);
    for (std::int64_t left; (left = left_.fetch_sub(1)) > 0;) {
      const auto choice = random() % 100;
      const auto own = static_cast<unsigned>(thread + kThreads * (random() % (kUrls / kThreads)));
      if (choice < 35) {
        StoreOne(own, random() % 10 == 0);
      } else if (choice < 95) {
        FetchOne(static_cast<unsigned>(random() % kUrls));
      } else {
        RemoveOne(own);
      }
      if (left % 500 == 0) Measure();
      if (left % 3000 == 0) TrimAll();
    }
  }

  void StoreOne(unsigned url, bool isDropped) {
    const std::uint64_t version = ++nextVersion_[url];
    const std::string content = ContentOf(url, version);
    Error error;
    auto writer = Do([&] { return session_->Store(UrlOf(url), &error); });
    if (writer == nullptr) Fail("store: " + error.Message());
    for (std::size_t done = 0; done < content.size();) {
      const std::size_t part = std::min<std::size_t>(2048, content.size() - done);
      error = Do([&] { return writer->Write(content.data() + done, part); });
      if (error) Fail("an entry that fits was refused: " + error.Message());
      done += part;
    }
    if (isDropped) {
      ++dropped_;
      Do([&] { writer.reset(); });
      return;
    }
    error = Do([&] { return writer->Commit(MetaDataOf(url, version)); });
    if (error) Fail("an entry that fits was refused: " + error.Message());
    oldest_[url].store(version);
    ++commits_;
  }

  void FetchOne(unsigned url) {
    const std::uint64_t oldest = oldest_[url].load();
    Error error;
    const auto entry = Do([&] { return session_->Fetch(UrlOf(url), &error); });
    if (!entry && error.kind != ErrorKind::kNotFound) Fail("fetch: " + error.Message());
    ++(entry ? hits_ : misses_);
    if (!entry) return;
    unsigned foundUrl = 0;
    std::uint64_t version = 0;
    if (std::sscanf(entry->metadata.c_str(), "%u %" SCNu64, &foundUrl, &version) != 2 ||
        foundUrl != url || entry->metadata != MetaDataOf(url, version)) {
      Fail("wrong metadata: " + entry->metadata);
    }
    if (version < oldest) Fail("an old version came back: " + entry->metadata);
    if (ReadAll(entry->content.Get()) != ContentOf(url, version)) {
      Fail("wrong content: " + entry->metadata);
    }
  }

  void RemoveOne(unsigned url) {
    const Error error = Do([&] { return session_->Remove(UrlOf(url)); });
    if (error && error.kind != ErrorKind::kNotFound) Fail("remove: " + error.Message());
    oldest_[url].store(nextVersion_[url] + 1);
    ++removals_;
  }

  // Restarts the manager while others write.
  void TrimAll() {
    const Error error = Do([&] { return session_->Trim(nullptr); });
    if (error) Fail("trim: " + error.Message());
  }

  void Measure() {
    const std::unique_lock<std::shared_mutex> lock(calls_);
    const std::uint64_t bytes = DiskUse(directory_.Path());
    if (bytes != session_->Statistics().bytes) {
      Fail("on disk " + std::to_string(bytes) + ", counted " +
           std::to_string(session_->Statistics().bytes));
    }
    if (bytes > kLimits.size + kLimits.entrySize) Fail("disk use " + std::to_string(bytes));
    mostOnDisk_ = std::max(mostOnDisk_, bytes);
    ++measurements_;
  }

  void CheckRestart() {
    const std::uint64_t entries = session_->Statistics().entries;
    session_.reset();
    session_ = OpenSession(OptionsFor(directory_.Path()));
    if (session_->Statistics().entries != entries) Fail("lost at a restart");
    for (unsigned url = 0; url < kUrls; ++url)
      FetchOne(url);
    session_.reset();
  }

  const CacheDirectory directory_{kLimits};
  std::unique_ptr<CacheSession> session_;
  std::shared_mutex calls_;
  std::atomic<std::int64_t> left_;
  std::uint64_t nextVersion_[kUrls] = {};
  std::atomic<std::uint64_t> oldest_[kUrls] = {};
  std::atomic<std::uint64_t> commits_{0}, dropped_{0}, hits_{0}, misses_{0}, removals_{0};
  std::uint64_t mostOnDisk_ = 0;
  std::uint64_t measurements_ = 0;
};

// The load of one thread as a host without a session would do it.
class BareLoad {
 public:
  BareLoad() : kernel_(directory_.Path()) {
    std::string error;
    module_ = host::LoadedModule::Load(OX_MODULE_PATH, kernel_, &error);
    if (module_ == nullptr) Fail(error);
  }

  void Run(std::uint64_t operations) {
    host::ManagerReference manager(*module_);
    std::mt19937 random(0);
    std::uint64_t mostOnDisk = 0;
    for (std::uint64_t operation = 1; operation <= operations; ++operation) {
      const auto choice = random() % 100;
      const auto url = static_cast<unsigned>(random() % kUrls);
      const OxString text(UrlOf(url).c_str());
      if (choice >= 35) {
        core::cache::CacheValue* value = manager->Get(text);
        if (choice >= 95 && value != nullptr) manager->Remove(value);
        continue;
      }
      if (operation % 20 == 0) mostOnDisk = std::max(mostOnDisk, DiskUse(directory_.Path()));
      if (StoreOne(*manager, url, text, operation)) continue;
      std::printf("bare manager: refuses an entry that fits at operation %" PRIu64
                  "; disk use was up to %" PRIu64 " bytes\n",
                  operation, mostOnDisk);
      return;
    }
    std::printf("bare manager: refused nothing in %" PRIu64
                " operations; disk use was up to %" PRIu64 " bytes\n",
                operations, mostOnDisk);
  }

 private:
  bool StoreOne(core::cache::FileCacheManager& manager, unsigned url, const OxString& text,
                std::uint64_t version) {
    core::cache::CacheValue* old = manager.Get(text);
    if (old != nullptr) manager.Remove(old);
    const std::string content = ContentOf(url, version);
    const unsigned long size = content.size();
    core::cache::CacheValue* value =
        manager.CreateCacheValue(text, size, OxString(MetaDataOf(url, version).c_str()));
    if (value == nullptr) return false;
    WriteWhole(value->GetFile().UTF8(), content);
    if (version % 10 == 0) {
      manager.DestroyCacheValue(value);
      return true;
    }
    return manager.Add(value);
  }

  const CacheDirectory directory_{kLimits};
  host::PosixKernel kernel_;
  std::unique_ptr<host::LoadedModule> module_;
};

}  // namespace
}  // namespace ox::testing

int main(int argc, char** argv) {
  const std::uint64_t operations = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1000000;
  ox::testing::Soak(operations).Run();
  ox::testing::BareLoad().Run(operations);
  return 0;
}

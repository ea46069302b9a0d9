// Threads store, replace, fetch, remove and give up entries at random, and everything that a
// session promises is checked on the way. Then the same load runs in a process that is killed at a
// random moment, again and again, on the machine's own disk.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <thread>

#include "tests/support/ledger.h"

namespace ox::testing {
namespace {

constexpr int kUrls = 48;

int FromEnvironment(const char* name, int quick, int long_) {
  if (const char* number = std::getenv(name)) return std::atoi(number);
  return std::getenv("OX_PROVE") != nullptr ? long_ : quick;
}

std::string UrlOf(int number) {
  return "http://host/" + std::to_string(number);
}

// Each URL is written by one thread and read by all. Shared with the process that is killed.
struct Progress {
  std::array<std::atomic<int>, kUrls> begun;  // the version being stored, kAbsent for a removal
  std::array<std::atomic<int>, kUrls> done;
  std::atomic<int> operations;
};

class Load {
 public:
  Load(CacheSession& session, std::string directory, const Limits& limits, Progress& progress)
      : session_(session), directory_(std::move(directory)), limits_(limits), progress_(progress) {}

  void Run(int threads, int operations) {
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i)
      running.emplace_back([=] { Work(i, threads, operations); });
    for (std::thread& thread : running)
      thread.join();
    Measure();
    std::printf("%d stored, %d renewed, %d given up, %d found, %d not found, none refused\n",
                stored_.load(), renewed_.load(), dropped_.load(), found_.load(), missed_.load());
    std::printf("disk use at most %d of %d + %d bytes, measured %d times\n",
                static_cast<int>(mostOnDisk_), static_cast<int>(limits_.size),
                static_cast<int>(limits_.entrySize), measurements_);
    EXPECT_GT(found_, 0);
    EXPECT_GT(dropped_, 0);
  }

  // An entry whose names a foreign directory has taken: its commits fail.
  void BlockedBy(const std::string& url) { blockedUrl_ = url; }

 private:
  // Every call of the session, so that the disk can be measured between calls. Several run at once.
  template <typename Call>
  auto Do(Call call) {
    const std::shared_lock<std::shared_mutex> lock(calls_);
    return call();
  }

  void Work(int thread, int threads, int operations) {
    std::mt19937 random(static_cast<unsigned>(thread + progress_.operations));
    const auto pick = [&](int below) { return static_cast<int>(random() >> 1) % below; };
    for (int version; (version = ++progress_.operations) < operations;) {
      const int choice = pick(100);
      const int own = thread + threads * pick(kUrls / threads);
      if (choice < 35) {
        StoreOne(own, version, choice < 5);
      } else if (choice < 90) {
        FetchOne(pick(kUrls));
      } else if (choice < 93) {
        RemoveOne(own, version);
      } else if (choice < 96) {
        RenewOne(own);
      } else if (!blockedUrl_.empty()) {
        Error error;
        auto writer = Do([&] { return Write(session_, blockedUrl_, "content", &error); });
        ASSERT_EQ(EISDIR, Do([&] { return writer->Commit("m").systemError; }));
        Do([&] { writer.reset(); });
      }
      if (version % 500 == 0) Measure();
      if (version % 3000 == 0) {
        EXPECT_FALSE(Do([&] { return session_.Trim(nullptr); }));  // restarts while others write
      }
      ASSERT_FALSE(::testing::Test::HasFailure());
    }
  }

  void StoreOne(int url, int version, bool isDropped) {
    const std::string content = ContentOf(UrlOf(url), version);
    Error error;
    auto writer = Do([&] { return session_.Store(UrlOf(url), &error); });
    ASSERT_NE(nullptr, writer) << error.Message();
    for (const std::size_t begin : {std::size_t{0}, content.size() / 2}) {
      const std::string part =
          content.substr(begin, begin == 0 ? content.size() / 2 : content.npos);
      error = Do([&] { return writer->Write(part.data(), part.size()); });
      ASSERT_FALSE(error) << "refused although it fits: " << error.Message();
    }
    if (isDropped) {
      ++dropped_;
      Do([&] { writer.reset(); });
      return;
    }
    progress_.begun[Index(url)] = version;
    error = Do([&] { return writer->Commit(MetadataOf(UrlOf(url), version)); });
    ASSERT_FALSE(error) << "refused although it fits: " << error.Message();
    progress_.done[Index(url)] = version;
    oldest_[Index(url)] = version;
    ++stored_;
  }

  void FetchOne(int url) {
    const int oldest = oldest_[Index(url)];
    Error error;
    const int found = Do([&] { return FetchVersion(session_, UrlOf(url), &error); });
    EXPECT_TRUE(found == kAbsent || found % kRenewal >= oldest) << found << error.Message();
    ++(found != kAbsent ? found_ : missed_);
  }

  void RenewOne(int url) {
    const int version = progress_.done[Index(url)] + kRenewal;
    if (version == kRenewal) return;
    progress_.begun[Index(url)] = version;
    const Error error =
        Do([&] { return session_.SetMetadata(UrlOf(url), MetadataOf(UrlOf(url), version)); });
    EXPECT_TRUE(!error || error.kind == ErrorKind::kNotFound) << error.Message();
    // What was evicted meanwhile stays gone.
    progress_.done[Index(url)] = error ? kAbsent : version;
    if (!error) ++renewed_;
  }

  void RemoveOne(int url, int version) {
    progress_.begun[Index(url)] = kAbsent;
    const Error error = Do([&] { return session_.Remove(UrlOf(url)); });
    EXPECT_TRUE(!error || error.kind == ErrorKind::kNotFound) << error.Message();
    progress_.done[Index(url)] = kAbsent;
    oldest_[Index(url)] = version;
  }

  void Measure() {
    const std::unique_lock<std::shared_mutex> lock(calls_);
    const std::uint64_t bytes = DiskUse(directory_);
    EXPECT_EQ(bytes, session_.Statistics().bytes);
    EXPECT_LE(bytes, limits_.size + limits_.entrySize);
    EXPECT_LE(session_.Statistics().entries, limits_.entries);
    mostOnDisk_ = std::max(mostOnDisk_, bytes);
    ++measurements_;
  }

  static std::size_t Index(int url) { return static_cast<std::size_t>(url); }

  CacheSession& session_;
  const std::string directory_;
  const Limits limits_;
  Progress& progress_;
  std::string blockedUrl_;
  std::array<std::atomic<int>, kUrls> oldest_{};  // version that a fetch may give
  std::shared_mutex calls_;
  std::atomic<int> stored_{0}, renewed_{0}, dropped_{0}, found_{0}, missed_{0};
  std::uint64_t mostOnDisk_ = 0;
  int measurements_ = 0;
};

TEST(SessionLoad, OnEightThreads) {
  const Limits limits{24576, 20, 4096};
  const CacheDirectory directory(limits);
  const std::string url = "http://host/blocked";
  auto session = OpenSession(OptionsFor(directory.Path()));
  ASSERT_FALSE(Store(*session, url, "x", "m"));
  Error error;
  const std::string path = session->Fetch(url, &error)->path;
  ASSERT_FALSE(session->Remove(url));
  std::filesystem::create_directory(path);

  Progress progress{};
  Load load(*session, directory.Path(), limits, progress);
  load.BlockedBy(url);
  load.Run(8, FromEnvironment("SOAK_OPERATIONS", 6000, 100000));
  const auto statistics = session->Statistics();
  std::printf("%d evicted, %d restarts of the manager\n", static_cast<int>(statistics.trimmed),
              static_cast<int>(statistics.restarts));
  session.reset();
  session = OpenSession(OptionsFor(directory.Path()));
  EXPECT_EQ(session->Statistics().entries, statistics.entries);
  EXPECT_EQ(session->Statistics().bytes, statistics.bytes);
}

class Kills : public ::testing::Test {
 protected:
  Kills()
      : progress_(*static_cast<Progress*>(mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                                               MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  ~Kills() override { munmap(&progress_, sizeof(Progress)); }

  // Lets the load run in a process of its own until `isOver`. It never ends by itself.
  void RunUntil(Durability durability, const std::function<bool()>& isOver) {
    const pid_t child = fork();
    if (child == 0) {
      const auto session = OpenSession(OptionsFor(directory_.Path(), durability));
      Load(*session, directory_.Path(), kNoLimits, progress_).Run(3, 1 << 30);
      _exit(1);
    }
    while (!isOver())
      usleep(500);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
  }

  // Every entry is whole, and is the last one that was reported or the one being stored.
  void CheckAll() {
    const auto session = OpenSession(OptionsFor(directory_.Path()));
    Error error;
    for (std::size_t i = 0; i < kUrls; ++i) {
      const int found = FetchVersion(*session, UrlOf(static_cast<int>(i)), &error);
      const int begun = progress_.begun[i];
      const int done = progress_.done[i];
      ASSERT_TRUE(found == begun || found == done)
          << i << ": version " << found << ", expected " << begun << " or " << done;
      progress_.begun[i] = found;
      progress_.done[i] = found;
    }
    // Configuration, lock, and pairs.
    const auto files = std::filesystem::directory_iterator(directory_.Path());
    const auto entries = static_cast<std::ptrdiff_t>(session->Statistics().entries);
    ASSERT_EQ(2 + 2 * entries, std::distance(begin(files), end(files)));
  }

  static constexpr Limits kNoLimits{1 << 20, kUrls + 10, 65536};
  const CacheDirectory directory_{kNoLimits};
  Progress& progress_;
};

TEST_F(Kills, AtRandomMoments) {
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  RunUntil(Durability::kPower, [&] { return progress_.operations > 10; });
  const auto longest = 2 * (Clock::now() - start);
  const int rounds = FromEnvironment("KILL_ROUNDS", 50, 1000);
  std::mt19937 random(1);
  for (int round = 0; round < rounds; ++round) {
    const auto end = Clock::now() + longest * (random() % 1000) / 1000;
    RunUntil(round % 2 == 0 ? Durability::kPower : Durability::kProcess,
             [&] { return Clock::now() > end; });
    CheckAll();
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
  std::printf("%d kills, %d operations before them\n", rounds, progress_.operations.load());
  // Kills that never met a running operation would prove nothing.
  EXPECT_GT(progress_.operations, rounds);
}

}  // namespace
}  // namespace ox::testing

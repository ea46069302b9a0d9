// What the limits allow, what goes when they are reached, and in which order.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <list>
#include <map>
#include <random>
#include <thread>

#include "session/durable_io.h"
#include "session/use_clock.h"
#include "tests/support/session_rig.h"

namespace ox::testing {
namespace {

std::vector<std::string> NamesInOrderOfUse(const ScratchDirectory& directory) {
  std::vector<std::string> names;
  for (const internal::SurveyedEntry& entry : Look(directory.Path()).entries)
    names.emplace_back(entry.name);
  return names;
}

std::string NameOf(CacheSession& session, const std::string& url) {
  Error error;
  const auto entry = session.Fetch(url, &error);
  return entry ? entry->path.substr(entry->path.rfind('/') + 1) : error.Message();
}

// The cache as a person would describe it: a list in the order of use, and two limits.
class Model {
 public:
  using Entry = std::pair<std::string, std::string>;  // URL, "CONTENT|METADATA"

  explicit Model(Limits limits) : limits_(limits) {}

  void Store(const std::string& url, const std::string& text) {
    Remove(url);
    while (order_.size() >= limits_.entries || Size() + text.size() - 1 > limits_.size)
      order_.pop_front();
    order_.emplace_back(url, text);
  }

  void Remove(const std::string& url) {
    order_.remove_if([&](const Entry& entry) { return entry.first == url; });
  }

  std::string Fetch(const std::string& url) {
    for (auto entry = order_.begin(); entry != order_.end(); ++entry) {
      if (entry->first != url) continue;
      order_.splice(order_.end(), order_, entry);
      return entry->second;
    }
    return kNotThere;
  }

  const std::list<Entry>& Order() const { return order_; }
  std::uint64_t Size() const {
    std::uint64_t bytes = 0;
    for (const Entry& entry : order_)
      bytes += entry.second.size() - 1;  // without the "|" between content and metadata
    return bytes;
  }

 private:
  const Limits limits_;
  std::list<Entry> order_;
};

TEST(SessionLimits, TheCacheDoesWhatAModelDoesAcrossRestarts) {
  // By count, by bytes, by both. Much metadata drives the manager's own total above the limit after
  // a scan, and below 0 where it outweighs the content.
  const struct {
    Limits limits;
    unsigned contentBytes, metadataBytes;
    bool needsRestarts;
  } cases[] = {{{1000000, 5, 65536}, 100, 20, false},
               {{8192, 1000, 2048}, 1500, 40, false},
               {{12288, 60, 4096}, 1500, 900, true},
               {{16384, 6, 4096}, 3500, 500, false},
               {{4096, 8, 1024}, 4, 1000, true}};
  for (const auto& test : cases) {
    const CacheDirectory directory(test.limits);
    std::mt19937 random(7);
    Model model(test.limits);
    std::map<std::string, std::string> names;
    std::uint64_t restarts = 0;
    auto session = OpenSession(OptionsFor(directory.Path()));
    for (unsigned step = 0; step < 1500; ++step) {
      const std::string url = "http://host/" + std::to_string(random() % 20);
      const auto choice = random() % 20;
      if (choice < 9) {
        const std::string content = Bytes(step, 1 + random() % test.contentBytes);
        const std::string metadata(1 + random() % test.metadataBytes, 'm');
        ASSERT_FALSE(Store(*session, url, content, metadata));
        model.Store(url, content + "|" + metadata);
        names[url] = NameOf(*session, url);
      } else if (choice < 17) {
        ASSERT_EQ(Fetch(*session, url), model.Fetch(url)) << step;
      } else if (choice < 19) {
        session->Remove(url);
        model.Remove(url);
      } else {
        restarts += session->Statistics().restarts;
        session.reset();
        session = OpenSession(OptionsFor(directory.Path()));
      }
      ASSERT_EQ(session->Statistics().bytes, model.Size()) << step;
      std::vector<std::string> expected;
      for (const Model::Entry& used : model.Order())
        expected.push_back(names[used.first]);
      ASSERT_EQ(NamesInOrderOfUse(directory), expected) << step;
    }
    EXPECT_EQ(DiskUse(directory.Path()), model.Size());
    EXPECT_EQ(restarts > 0, test.needsRestarts);
  }
}

// The manager's total still has the content of what was evicted since it started.
TEST(SessionLimits, AnEntryThatSomebodyDeletedCostsNoneThatMayStay) {
  const CacheDirectory directory({10000, 100, 8000});
  const auto session = OpenSession(OptionsFor(directory.Path()));
  ASSERT_FALSE(Store(*session, "deleted", "x", "m"));
  std::filesystem::remove(directory.Path() + "/" + NameOf(*session, "deleted"));
  for (const char* url : {"oldest", "kept"})
    ASSERT_FALSE(Store(*session, url, std::string(4900, 'x'), "m"));
  EXPECT_FALSE(Store(*session, "new", std::string(3000, 'n'), std::string(1000, 'm')));
  EXPECT_EQ(session->Statistics().bytes, 4901U + 4000U);
}

std::uint64_t mostOnDisk = 0;
const char* watchedDirectory = nullptr;

void Watch() {
  mostOnDisk = std::max(mostOnDisk, DiskUse(watchedDirectory));
}

TEST(SessionLimits, DiskUseNeverExceedsTheLimitByMoreThanOneEntry) {
  const Limits limits{16384, 100, 4096};
  const CacheDirectory directory(limits);
  watchedDirectory = directory.Path().c_str();
  const auto session = OpenSession(OptionsFor(directory.Path()));
  mostOnDisk = 0;
  internal::SetFileOperationHook(&Watch);
  std::mt19937 random(3);
  // Several writers at once, ended in any order.
  std::vector<std::unique_ptr<session::StoreWriter>> writers;
  Error error;
  for (int i = 0; i < 1000; ++i) {
    const std::string bytes = Bytes(1, 1 + random() % 3000);
    auto writer = session->Store("u" + std::to_string(random() % 30), &error);
    ASSERT_FALSE(writer->Write(bytes.data(), bytes.size()));
    writers.push_back(std::move(writer));
    if (writers.size() < 4) continue;
    const std::size_t which = random() % writers.size();
    if (random() % 4 != 0) {
      ASSERT_FALSE(writers[which]->Commit(std::string(500, 'm')));
    }
    writers.erase(writers.begin() + static_cast<std::ptrdiff_t>(which));
    Watch();
    ASSERT_EQ(session->Statistics().bytes, DiskUse(directory.Path()));
  }
  internal::SetFileOperationHook(nullptr);
  EXPECT_LE(mostOnDisk, limits.size + limits.entrySize);
  EXPECT_GT(mostOnDisk, limits.size * 3 / 4);
}

TEST(SessionLimits, WritersThatDoNotFitTogetherWaitForAnotherThreadsButNotForTheirOwn) {
  const CacheDirectory directory({4096, 100, 4096});
  const auto session = OpenSession(OptionsFor(directory.Path()));
  Error error;
  const std::string bytes = Bytes(1, 4000);
  auto first = session->Store("a", &error);
  auto second = session->Store("b", &error);
  const auto third = session->Store("c", &error);
  ASSERT_FALSE(first->Write(bytes.data(), bytes.size()));
  ASSERT_FALSE(second->Write(bytes.data(), bytes.size()));
  EXPECT_EQ(third->Write(bytes.data(), bytes.size()).kind, ErrorKind::kRefused);

  std::atomic<bool> isStored{false};
  Error storeError;
  std::thread other([&] {
    storeError = Store(*session, "d", bytes, "m");
    isStored = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(isStored);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(first->Commit("m"));
  second.reset();
  other.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_FALSE(storeError) << storeError.Message();
  EXPECT_TRUE(Fetch(*session, "d") == bytes + "|m");
}

TEST(SessionLimits, OpeningWithLowerLimitsKeepsWhatWasUsedLast) {
  const CacheDirectory directory({100000, 20, 10000});
  {
    const auto session = OpenSession(OptionsFor(directory.Path()));
    for (int i = 0; i < 10; ++i)
      ASSERT_FALSE(Store(*session, std::to_string(i), Bytes(1, i == 9 ? 5000 : 999), "m"));
    EXPECT_EQ(Fetch(*session, "0"), Bytes(1, 999) + "|m");
  }
  Configure(directory, {4000, 20, 2000});
  auto session = OpenSession(OptionsFor(directory.Path()));
  for (int i = 0; i < 10; ++i) {
    const bool isKept = i == 0 || (i >= 6 && i <= 8);
    EXPECT_EQ(Fetch(*session, std::to_string(i)) != kNotThere, isKept) << i;
  }
  EXPECT_EQ(session->Statistics().trimmed, 6u);
  session.reset();

  Configure(directory, {4000, 2, 2000});
  session = OpenSession(OptionsFor(directory.Path()));
  EXPECT_EQ(session->Statistics().entries, 2u);
  EXPECT_EQ(Fetch(*session, "6"), kNotThere);
}

// At most nine tenths of the bytes, and of the entries, rounded up, stay.
TEST(SessionLimits, TrimLeavesAReserve) {
  const struct {
    Limits limits;
    int stored, bytes, left;
  } cases[] = {{{100000, 10, 5000}, 10, 100, 9},  {{100000, 12, 5000}, 12, 100, 11},
               {{100000, 22, 5000}, 22, 100, 20}, {{100000, 1, 5000}, 1, 100, 1},
               {{4000, 10, 2000}, 4, 900, 4},     {{4000, 10, 2000}, 4, 901, 3}};
  for (const auto& test : cases) {
    const CacheDirectory directory(test.limits);
    const auto session = OpenSession(OptionsFor(directory.Path()));
    for (int i = 0; i < test.stored; ++i)
      ASSERT_FALSE(Store(*session, std::to_string(i), Bytes(1, test.bytes - 1U), "m"));
    std::uint64_t deleted = 0;
    EXPECT_FALSE(session->Trim(&deleted));
    EXPECT_EQ(static_cast<int>(deleted), test.stored - test.left) << test.stored;
    EXPECT_EQ(session->Statistics().trimmed, deleted);
    EXPECT_EQ(static_cast<int>(Look(directory.Path()).entries.size()), test.left);
    EXPECT_NE(Fetch(*session, std::to_string(test.stored - 1)), kNotThere);
  }
}

TEST(SessionLimits, AClockSetBackDoesNotTurnTheOrderAround) {
  const CacheDirectory directory({100000, 3, 10000});
  for (const char* url : {"a", "b", "c"}) {
    const auto session = OpenSession(OptionsFor(directory.Path()));
    ASSERT_FALSE(Store(*session, url, "x", "m"));
    // As if that had happened at the end of 2036, before the clock went back.
    SetModified(directory / (NameOf(*session, url) + ".ox_meta"), 2111702400 + *url);
  }
  const auto before = NamesInOrderOfUse(directory);
  const auto session = OpenSession(OptionsFor(directory.Path()));
  EXPECT_EQ(Fetch(*session, "a"), "x|m");
  ASSERT_FALSE(Store(*session, "d", "x", "m"));
  const auto after = NamesInOrderOfUse(directory);
  ASSERT_EQ(after.size(), 3u);
  EXPECT_EQ(after[0], before[2]);
  EXPECT_EQ(after[1], before[0]);
}

TEST(SessionLimits, AFetchWritesTheTimeOfUseOnlyWhenTheIntervalHasPassed) {
  const CacheDirectory directory({100000, 3, 10000});
  auto options = OptionsFor(directory.Path());
  const auto timeAfterFetch = [&](std::chrono::seconds interval, std::int64_t before = 0) {
    options.touchInterval = interval;
    const auto session = OpenSession(options);
    Error error;
    const auto entry = session->Fetch("a", &error);
    struct stat status {};
    if (before != 0) {
      SetModified(entry->path + ".ox_meta", before);
      session->Fetch("a", &error);
    }
    stat((entry->path + ".ox_meta").c_str(), &status);
    return internal::ToNanoseconds(status.st_mtim);
  };
  ASSERT_FALSE(Store(*OpenSession(options), "a", "x", "m"));
  const std::int64_t stored = timeAfterFetch(std::chrono::seconds::max());
  EXPECT_EQ(timeAfterFetch(std::chrono::seconds(3600)), stored);
  EXPECT_GT(timeAfterFetch(std::chrono::seconds(0)), stored);
  // Somebody else's, which lies ahead.
  constexpr std::int64_t kAhead = 4102444800;
  EXPECT_LT(timeAfterFetch(std::chrono::seconds(3600), kAhead), kAhead * 1000000000);
}

}  // namespace
}  // namespace ox::testing

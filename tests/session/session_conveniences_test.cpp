// What programs would otherwise write by hand around a session.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <new>
#include <stdexcept>
#include <thread>

#include "session/durable_io.h"
#include "session/entry_name.h"
#include "session/use_clock.h"
#include "tests/support/session_rig.h"
#include <oxfilecache/metrics.h>

namespace ox::testing {
namespace {

class SessionConveniencesTest : public ::testing::Test {
 protected:
  const CacheDirectory directory_{{65536, 10, 8192}};
  SessionOptions options_ = OptionsFor(directory_.Path());
};

TEST_F(SessionConveniencesTest, AWriterThatOutlivesItsSessionGetsErrors) {
  auto session = OpenSession(options_);
  ASSERT_FALSE(Store(*session, "a", "old", "1"));
  Error error;
  auto writer = Write(*session, "a", "new", &error);
  session.reset();
  EXPECT_EQ(writer->Write("x", 1).kind, ErrorKind::kInvalidArgument);
  EXPECT_EQ(writer->Commit("2").kind, ErrorKind::kInvalidArgument);
  writer.reset();
  EXPECT_TRUE(Look(directory_.Path()).staging.empty());
  EXPECT_EQ(Fetch(*OpenSession(options_), "a"), "old|1");
}

TEST_F(SessionConveniencesTest, WholeEntriesGoInAndOut) {
  const auto session = OpenSession(options_);
  const std::string content = Bytes(1, 5000) + std::string("\0x", 2);
  Error error;
  EXPECT_FALSE(session->FetchWhole("a", &error));
  EXPECT_EQ(error.kind, ErrorKind::kNotFound);
  EXPECT_FALSE(session->StoreWhole("a", content, "m"));
  EXPECT_EQ(session->StoreWhole("a", "", "m").kind, ErrorKind::kInvalidArgument);
  const auto found = session->FetchWhole("a", &error);
  ASSERT_TRUE(found) << error.Message();
  EXPECT_EQ(found->content, content);
  EXPECT_EQ(found->metadata, "m");
}

TEST_F(SessionConveniencesTest, LookingIsNoUse) {
  const auto session = OpenSession(options_);
  const std::string urls[] = {"a", std::string(3000, 'b'), "c"};
  for (const std::string& url : urls)
    ASSERT_FALSE(session->StoreWhole(url, url, "m"));
  Error error;
  for (const std::string& url : urls)
    EXPECT_TRUE(session->Contains(url, &error));
  const auto listed = session->List(&error);
  ASSERT_EQ(listed.size(), 3u) << error.Message();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(listed[i].contentBytes, urls[i].size());
    EXPECT_TRUE(listed[i].url == urls[i] || (i == 1 && listed[i].url.empty()));
  }
  EXPECT_FALSE(session->Contains("d", &error));
  EXPECT_FALSE(error);
  EXPECT_FALSE(session->Contains("", &error));
  EXPECT_EQ(error.kind, ErrorKind::kInvalidArgument);
  ASSERT_FALSE(session->StoreWhole("d", std::string(8000, 'd'), "m"));
  for (int i = 0; i < 7; ++i)
    ASSERT_FALSE(session->StoreWhole(std::to_string(i), "x", "m"));
  EXPECT_FALSE(session->Contains("a", &error)) << "the eleventh entry evicts the oldest";
  EXPECT_TRUE(session->Contains("c", &error));
}

TEST_F(SessionConveniencesTest, EvictionsAreCountedAndToldByReason) {
  using session::Eviction;
  using session::EvictionReason;
  std::string told;
  CacheSession* open = nullptr;
  options_.onEviction = [&](const Eviction& eviction) {
    told += eviction.url + std::to_string(static_cast<int>(eviction.reason)) + " ";
    // Locks up where the session calls this under its mutex.
    if (open != nullptr) told += open->Statistics().entries > 0 ? "" : "(empty)";
  };
  auto session = OpenSession(options_);
  open = session.get();
  for (const char* url : {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k"})
    EXPECT_FALSE(session->StoreWhole(url, url, "m"));
  EXPECT_EQ(told, "a0 ");
  EXPECT_FALSE(session->Trim(nullptr));
  Error error;
  const auto entry = session->Fetch("c", &error);
  ASSERT_TRUE(entry);
  std::filesystem::resize_file(entry->path, 0);
  EXPECT_FALSE(session->SetMetadata("d", "n"));
  EXPECT_FALSE(session->Fetch("c", &error));
  EXPECT_FALSE(session->Remove("e"));
  EXPECT_EQ(told, "a0 b1 c4 ");
  const session::SessionStatistics statistics = session->Statistics();
  EXPECT_EQ(statistics.evictions, (decltype(statistics.evictions){1, 1, 0, 0, 1}));
  EXPECT_EQ(statistics.hits, 1u);
  EXPECT_EQ(statistics.misses, 1u);
  EXPECT_EQ(statistics.stores, 11u);
  EXPECT_EQ(statistics.renewals, 1u);
  EXPECT_EQ(statistics.removed, 1u);

  open = nullptr;
  session.reset();
  Configure(directory_, {65536, 6, 8192});
  session = OpenSession(options_);
  EXPECT_EQ(told, "a0 b1 c4 f3 ");
}

std::string KindText(ErrorKind kind) {
  return "kind " + std::to_string(static_cast<int>(kind));
}

std::string FetchOrStore(CacheSession& session, const std::string& url,
                         const session::Producer& producer) {
  Error error;
  const auto entry = session.FetchOrStore(url, producer, &error);
  return entry ? ReadAll(entry->content.Get()) : KindText(error.kind);
}

TEST_F(SessionConveniencesTest, OneProducerServesAllCallers) {
  const auto session = OpenSession(options_);
  const struct {
    const char* url;
    Error (*produce)(StoreWriter&);
    std::string result;
  } cases[] = {
      {"good", [](StoreWriter& writer) { return writer.Write("content", 7); }, "content"},
      {"empty", [](StoreWriter&) { return Error(); }, KindText(ErrorKind::kInvalidArgument)},
      {"404", [](StoreWriter&) { return MakeError(ErrorKind::kNotFound, "no such page"); },
       KindText(ErrorKind::kNotFound)},
      {"throws", [](StoreWriter&) -> Error { throw std::runtime_error("lost"); },
       KindText(ErrorKind::kProducer)},
      {"throws oddly", [](StoreWriter&) -> Error { throw 1; }, KindText(ErrorKind::kProducer)},
      {"no memory", [](StoreWriter&) -> Error { throw std::bad_alloc(); },
       KindText(ErrorKind::kOutOfMemory)},
  };
  std::uint64_t misses = 0;
  for (const auto& test : cases) {
    misses += 4;
    std::atomic<int> runs{0};
    const auto produce = [&](StoreWriter& writer, std::string* metadata) {
      ++runs;
      *metadata = "m";
      while (session->Statistics().misses < misses)
        std::this_thread::yield();
      // From a miss to the waiting it is a step.
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      return test.produce(writer);
    };
    std::vector<std::future<std::string>> callers;
    for (int i = 0; i < 4; ++i) {
      callers.push_back(std::async(std::launch::async,
                                   [&] { return FetchOrStore(*session, test.url, produce); }));
    }
    for (auto& caller : callers)
      EXPECT_EQ(caller.get(), test.result) << test.url;
    EXPECT_EQ(runs, 1) << test.url;
  }
  EXPECT_EQ(Fetch(*session, "good"), "content|m");
}

// On the disk, and not in the manager's list.
TEST_F(SessionConveniencesTest, FilesPutInUnderASessionGiveWayToAProducer) {
  const auto session = OpenSession(options_);
  const std::string path = directory_ / internal::ContentName("a");
  WriteWhole(path, "planted");
  WriteWhole(path + ".ox_meta", "planted");
  const auto produce = [](StoreWriter& writer, std::string* metadata) {
    *metadata = "m";
    return writer.Write("made", 4);
  };
  EXPECT_EQ(FetchOrStore(*session, "a", produce), "made");
}

TEST_F(SessionConveniencesTest, ProducersThatWaitForEachOtherGetAnError) {
  const auto session = OpenSession(options_);
  std::atomic<int> producing{0};
  std::atomic<int> circles{0};
  const auto ask = [&](const std::string& url, const std::string& needed) {
    return FetchOrStore(*session, url, [&](StoreWriter& writer, std::string* metadata) {
      *metadata = "m";
      ++producing;
      while (producing < 2)
        std::this_thread::yield();
      if (FetchOrStore(*session, needed, {}) == KindText(ErrorKind::kInvalidArgument)) ++circles;
      return writer.Write("x", 1);
    });
  };
  auto other = std::async(std::launch::async, [&] { return ask("a", "b"); });
  EXPECT_EQ(ask("b", "a"), "x");
  EXPECT_EQ(other.get(), "x");
  EXPECT_EQ(circles, 1);
  EXPECT_EQ(ask("c", "c"), "x");
  EXPECT_EQ(circles, 2);
}

// The URLs that are there, in one text.
std::string Urls(CacheSession& session) {
  Error error;
  std::string urls;
  for (const session::ListedEntry& entry : session.List(&error))
    urls += entry.url;
  return urls;
}

TEST_F(SessionConveniencesTest, ManyEntriesGoAtOnce) {
  using session::ListedEntry;
  const auto session = OpenSession(options_);
  Error error;
  for (const char* url : {"a", "b", "c", "d"})
    ASSERT_FALSE(session->StoreWhole(url, "x", "m"));
  auto writer = Write(*session, "e", "y", &error);
  std::uint64_t deleted = 0;
  const auto isUnwanted = [&](const ListedEntry& entry) {
    // No lock is held, and what is replaced now is not what was asked about.
    if (entry.url == "b") {
      EXPECT_FALSE(session->StoreWhole("b", "new", "m"));
    }
    return entry.url != "c";
  };
  EXPECT_FALSE(session->RemoveIf(isUnwanted, &deleted));
  EXPECT_EQ(deleted, 2u);
  EXPECT_EQ(Urls(*session), "cb");
  EXPECT_EQ(Fetch(*session, "b"), "new|m");
  EXPECT_EQ(Fetch(*session, "a"), kNotThere);
  EXPECT_FALSE(session->Clear(&deleted));
  EXPECT_EQ(deleted, 2u);
  EXPECT_FALSE(writer->Commit("m"));
  EXPECT_EQ(Urls(*session), "e");
  EXPECT_EQ(session->Statistics().removed, 4u);
  EXPECT_EQ(session->Statistics().bytes, DiskUse(directory_.Path()));
}

TEST_F(SessionConveniencesTest, TrimsToATarget) {
  using session::EvictionReason;
  using std::chrono::seconds;
  const struct {
    session::TrimTarget target;
    std::string left;
    std::uint64_t byAge;
  } cases[] = {
      {{}, "abcdefg", 0},
      {{35, {}, {}}, "efg", 0},
      {{{}, 2, {}}, "fg", 0},
      {{{}, {}, seconds(250)}, "efg", 4},
      {{35, 4, seconds(150)}, "fg", 1},
      {{{}, {}, seconds::max()}, "abcdefg", 0},
      {{{}, {}, seconds(0)}, "", 7},
  };
  const auto session = OpenSession(options_);
  Error error;
  std::uint64_t byAge = 0;
  for (const auto& test : cases) {
    for (const char url : std::string("abcdefg"))
      ASSERT_FALSE(session->StoreWhole({url}, "123456789", "m"));
    // The last one was used now, each before it 100 seconds earlier.
    std::int64_t used = internal::UseClock().Next() - 600'000'000'000;
    for (const session::ListedEntry& entry : session->List(&error)) {
      internal::SetFileTime(directory_ / (entry.name + ".ox_meta"), used);
      used += 100'000'000'000;
    }
    std::uint64_t deleted = 0;
    EXPECT_FALSE(session->TrimTo(test.target, &deleted));
    EXPECT_EQ(Urls(*session), test.left);
    EXPECT_EQ(deleted, 7 - test.left.size());
    byAge += test.byAge;
    EXPECT_EQ(session->Statistics().evictions[static_cast<int>(EvictionReason::kAge)], byAge);
    EXPECT_FALSE(session->Clear(nullptr));
  }
}

TEST(Metrics, AreGroupedByFamilyAndEscaped) {
  session::NamedStatistics cache;
  cache.cache = "a\"\\\n";
  cache.limits.maxEntries = 7;
  cache.statistics.hits = 1ULL << 40;
  cache.statistics.evictions = {1, 2, 3, 4, 5};
  const std::string text = session::MetricsText({cache, {"b", {}, {}}});
  for (const char* part :
       {"# TYPE oxfilecache_limit_entries gauge\n# HELP oxfilecache_limit_entries Entries that the "
        "configuration admits\noxfilecache_limit_entries{cache=\"a\\\"\\\\\\n\"} 7\n"
        "oxfilecache_limit_entries{cache=\"b\"} 0\n# TYPE",
        "_hits_total{cache=\"a\\\"\\\\\\n\"} 1099511627776\n",
        "reason=\"damaged\"} 5\noxfilecache_evictions_total{cache=\"b\",reason=\"room\"} 0\n"}) {
    EXPECT_NE(text.find(part), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace ox::testing

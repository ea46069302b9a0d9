// What programs would otherwise write by hand around a session.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/session_rig.h"

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

}  // namespace
}  // namespace ox::testing

// What programs would otherwise write by hand around a session.
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace ox::testing

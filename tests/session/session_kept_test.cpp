// What a writer leaves under another URL: committed there, or kept there in case its process ends.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "session/session_names.h"
#include "tests/support/session_rig.h"

namespace ox::testing {
namespace {

class SessionKeptTest : public ::testing::Test {
 protected:
  std::string Files() const {
    const internal::Survey survey = Look(directory_.Path());
    return std::to_string(survey.entries.size()) + "+" + std::to_string(survey.staging.size());
  }
  // In a process that ends without closing anything.
  void InAProcessThatEnds(const std::function<void(CacheSession&)>& use) const {
    const pid_t child = fork();
    if (child == 0) {
      use(*OpenSession(options_));
      _exit(0);
    }
    waitpid(child, nullptr, 0);
  }

  const CacheDirectory directory_{{65536, 10, 8192}};
  SessionOptions options_ = OptionsFor(directory_.Path());
  Error error_;
};

TEST_F(SessionKeptTest, CommitsAsTheEntryOfAnotherUrl) {
  const auto session = OpenSession(options_);
  for (const char* content : {"first", "second"}) {
    ASSERT_FALSE(Store(*session, "a", "a's", "m"));
    const auto writer = Write(*session, "a", content, &error_);
    EXPECT_EQ(writer->CommitAs("", "m").kind, ErrorKind::kInvalidArgument);
    EXPECT_FALSE(writer->CommitAs("b", "n"));
    EXPECT_EQ(writer->CommitAs("c", "n").kind, ErrorKind::kInvalidArgument);
    EXPECT_EQ(Fetch(*session, "b"), std::string(content) + "|n");
  }
  const auto refused = Write(*session, "a", "a's", &error_);
  EXPECT_EQ(refused->CommitAs("c", "").kind, ErrorKind::kInvalidArgument);
  EXPECT_FALSE(refused->Commit("m"));
  EXPECT_EQ(Fetch(*session, "a"), "a's|m");
  EXPECT_EQ(Files(), "2+0");
}

TEST_F(SessionKeptTest, RenewsOnlyTheMetadataThatIsExpected) {
  const auto session = OpenSession(options_);
  ASSERT_FALSE(Store(*session, "a", "x", "old"));
  EXPECT_EQ(session->SetMetadata("a", "other", "new").kind, ErrorKind::kNotFound);
  EXPECT_EQ(Fetch(*session, "a"), "x|old");
  EXPECT_FALSE(session->SetMetadata("a", "old", "new"));
  EXPECT_EQ(Fetch(*session, "a"), "x|new");
}

TEST_F(SessionKeptTest, WhatWasKeptIsAnEntryAfterTheProcessEnded) {
  for (const Durability durability : {Durability::kNone, Durability::kPower}) {
    options_.durability = durability;
    ASSERT_FALSE(Store(*OpenSession(options_), "b", "an older one", "m"));
    InAProcessThatEnds([&](CacheSession& session) {
      StoreWriter* writer = Write(session, "a", std::string(5000, 'x'), &error_).release();
      writer->KeepAs("b", "1");
      // The manager starts again, and another writer ends.
      session.Clear(nullptr);
      Store(session, "c", "c", "m");
      writer->Write("y", 1);
      writer->KeepAs("b", "2");
      writer->Write(Bytes(1, 3000).data(), 3000);
    });
    EXPECT_EQ(Fetch(*OpenSession(options_), "b"), std::string(5000, 'x') + "y|2");
    EXPECT_EQ(Files(), "2+0");
    EXPECT_EQ(Fetch(*OpenSession(options_), "a"), kNotThere);
  }
}

TEST_F(SessionKeptTest, NothingIsKeptOfAWriterThatIsDoneOrLostItsContent) {
  const std::function<void(StoreWriter*)> ends[] = {
      [](StoreWriter* writer) { writer->Commit("m"); },
      [](StoreWriter* writer) { delete writer; },
      [this](StoreWriter*) {
        for (const std::string& name : Look(directory_.Path()).staging)
          if (!internal::StagingId(name).empty()) truncate((directory_ / name).c_str(), 1);
      },
  };
  for (const auto& end : ends) {
    ASSERT_FALSE(Store(*OpenSession(options_), "b", "an older one", "m"));
    InAProcessThatEnds([&](CacheSession& session) {
      StoreWriter* writer = Write(session, "a", "new", &error_).release();
      writer->KeepAs("b", "1");
      end(writer);
    });
    EXPECT_EQ(Fetch(*OpenSession(options_), "b"), "an older one|m");
  }
  EXPECT_EQ(Files(), "2+0");
}

// Stored, renewed or removed after it was kept: the start does not undo that.
TEST_F(SessionKeptTest, WhatWasKeptOfAnEntryEndsWithItsNextChange) {
  const struct {
    std::function<void(CacheSession&)> change;
    std::string found;
  } cases[] = {{[](CacheSession& session) { Store(session, "b", "whole", "n"); }, "whole|n"},
               {[](CacheSession& session) { session.SetMetadata("b", "new"); }, "an older one|new"},
               {[](CacheSession& session) { session.Remove("b"); }, kNotThere}};
  for (const auto& [change, found] : cases) {
    ASSERT_FALSE(Store(*OpenSession(options_), "b", "an older one", "m"));
    InAProcessThatEnds([&change = change, this](CacheSession& session) {
      Write(session, "a", "part", &error_).release()->KeepAs("b", "1");
      change(session);
    });
    EXPECT_EQ(Fetch(*OpenSession(options_), "b"), found);
  }
}

TEST_F(SessionKeptTest, KeepingTakesRoomUntilTheWriterEnds) {
  auto session = OpenSession(options_);
  auto writer = Write(*session, "a", "new", &error_);
  for (const std::size_t length : {1000, 10}) {
    EXPECT_FALSE(writer->KeepAs("b", std::string(length, 'm')));
    EXPECT_EQ(session->Statistics().bytes, DiskUse(directory_.Path()));
    EXPECT_EQ(Files(), "0+2");
  }
  for (const char* url : {"b", "c", ""})
    EXPECT_EQ(writer->KeepAs(url, *url == 'b' ? "" : "m").kind, ErrorKind::kInvalidArgument);
  EXPECT_EQ(writer->Commit("").kind, ErrorKind::kInvalidArgument);
  EXPECT_EQ(session->Statistics().bytes, DiskUse(directory_.Path()));
  EXPECT_FALSE(writer->Commit("m"));
  EXPECT_EQ(session->Statistics().bytes, DiskUse(directory_.Path()));
  EXPECT_EQ(Files(), "1+0");
  // Also one that ends after its session.
  writer = Write(*session, "a", "new", &error_);
  EXPECT_FALSE(writer->KeepAs("b", "m"));
  session.reset();
  EXPECT_EQ(writer->KeepAs("b", "m").kind, ErrorKind::kInvalidArgument);
  writer.reset();
  EXPECT_EQ(Files(), "1+0");
}

}  // namespace
}  // namespace ox::testing

// Single faults of a commit, of its interruption, and of the start that finishes it.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <set>
#include <utility>

#include "session/entry_name.h"
#include "tests/proof/session_fault_rig.h"

namespace ox::testing {
namespace {

// The manager counts the length of the metadata that it knows, not of what is on the disk.
TEST(CommitFaults, AReplacementWithoutMemoryCostsNoOtherEntry) {
  static const std::string kLong(1024, 'm');
  const std::function<Error(CacheSession&)> steps[] = {
      [](CacheSession& session) {
        Error error;
        const auto writer = Write(session, "0", "new", &error);
        return writer == nullptr ? error : writer->Commit(kLong);
      },
      [](CacheSession& session) { return session.SetMetadata("0", kLong); }};
  for (const auto& step : steps) {
    bool isReached = true;
    for (std::uint64_t k = 1; isReached; ++k) {
      const CacheDirectory directory{{100000, 3, 65536}};
      const auto session = OpenSession(OptionsFor(directory.Path()));
      for (const char* url : {"0", "1", "2"})
        ASSERT_FALSE(Store(*session, url, "content", "m"));
      allocationFaults.Arm(k, Mode::kOnce);
      static_cast<void>(step(*session));
      isReached = allocationFaults.WasReached();
      allocationFaults.Disarm();
      // The first is evicted, without being looked for before.
      for (const char* url : {"3", "4", "5", "6"})
        EXPECT_FALSE(Store(*session, url, "content", "m")) << k;
      EXPECT_EQ(session->Statistics().entries, 3U) << k;
    }
  }
}

TEST(CommitFaults, ACommitAsAnotherEntryIsOfThatUrlOrLeavesTheWriterItsOwn) {
  const std::string other(300, 'o');
  bool isReached = true;
  for (std::uint64_t k = 1; isReached; ++k) {
    const CacheDirectory directory{{100000, 3, 65536}};
    const auto session = OpenSession(OptionsFor(directory.Path()));
    Error error;
    const auto writer = Write(*session, "own", "content", &error);
    allocationFaults.Arm(k, Mode::kOnce);
    const bool isCommitted = !writer->CommitAs(other, "m");
    isReached = allocationFaults.WasReached();
    allocationFaults.Disarm();
    const bool isThere = Fetch(*session, other) == "content|m";
    EXPECT_TRUE(isThere || !isCommitted) << k;
    if (isThere) continue;
    EXPECT_FALSE(writer->Commit("m")) << k;
    EXPECT_EQ(Fetch(*session, "own"), "content|m") << k;
  }
}

// A commit at each of its stages, and a pair that is no entry. What is done to its entry before the
// commit can be finished is not undone by finishing it.
TEST(CommitFaults, ACommitThatCannotBeFinishedKeepsNothingFromOpening) {
  enum { kIsStaged, kIsInPlace, kIsLost, kIsStagedAgain, kStages };
  const std::set<std::string> kChanges = {"rename", "unlinkat", "fsync"};
  const struct {
    int error;
    std::set<std::string> calls;
    int served[kStages];
  } cases[] = {{EPERM, kChanges, {1, kAbsent, 1, 1}},
               {EROFS, kChanges, {1, kAbsent, 1, 1}},
               {ENOSPC, kChanges, {1, kAbsent, 1, 1}},
               {EIO, {"pread"}, {5, kAbsent, 1, 1}}};
  for (const auto& test : cases) {
    for (const int stage : {kIsStaged, kIsInPlace, kIsLost, kIsStagedAgain}) {
      // Nothing, store, remove, remove by predicate, renew the metadata.
      for (const char next : {'-', 's', 'r', 'p', 'm'}) {
        SCOPED_TRACE(std::string(std::strerror(test.error)) + std::to_string(stage) + next);
        Cache cache(Durability::kProcess);
        const std::string content = cache.scratch / internal::ContentName(kInterrupted);
        const std::string staged = cache.scratch / "ox-0123456789abcdef-2.part";
        if (stage == kIsStagedAgain) {
          std::filesystem::remove(content + ".0123456789abcdef-2.commit");
          cache.LeaveBehind(1);
        }
        Configure(cache.scratch, {100000, 9, 65536});
        WriteWhole(cache.scratch / "junk", "");
        WriteWhole(cache.scratch / "junk.ox_meta", "");
        if (stage == kIsInPlace) std::filesystem::rename(staged, content);
        if (stage == kIsLost) {
          std::filesystem::remove(staged);
          cache.ledger.Committed(kInterrupted, 1);
        }
        refusal = {test.calls, test.error};
        cache.Open();
        ASSERT_NE(nullptr, cache.session) << cache.error.Message();
        if (test.error == EIO) refusal = {};  // a fetch reads, too
        EXPECT_EQ(test.served[stage], FetchVersion(*cache.session, kInterrupted, &cache.error));
        refusal = {};
        if (next == 's') Store(*cache.session, kInterrupted, 8, &cache.ledger);
        if (next == 'r') Remove(*cache.session, kInterrupted, &cache.ledger);
        if (next == 'p') RemoveByUrl(*cache.session, kInterrupted, &cache.ledger);
        const int found =
            next == 'm' ? FetchVersion(*cache.session, kInterrupted, &cache.error) : kAbsent;
        const int renewed = found + kRenewal;
        if (found != kAbsent) {
          EXPECT_FALSE(cache.session->SetMetadata(kInterrupted, MetadataOf(kInterrupted, renewed)));
          cache.ledger.Committed(kInterrupted, renewed);
        }
        // What was given up takes no place on the disk when the next operation has ended.
        if (found != kAbsent || std::strchr("srp", next) != nullptr) {
          FetchVersion(*cache.session, kKept, &cache.error);
          EXPECT_EQ(DiskUse(cache.scratch.Path()), cache.session->Statistics().bytes);
        }
        // Writable again, the commit is finished before anything is stored over it.
        const bool goesOn = test.error == EROFS || test.error == ENOSPC;
        CheckBoth(cache, goesOn);
        EXPECT_EQ(0U, cache.session->Statistics().damaged);
      }
    }
  }
}

TEST(CommitFaults, ACommitThatWaitsHoldsUpNoOtherEntry) {
  Cache cache(Durability::kProcess);
  refusal = {{"rename"}, EROFS};
  Configure(cache.scratch, {100000, 9, 65536});
  cache.Open();
  ASSERT_NE(nullptr, cache.session) << cache.error.Message();
  EXPECT_FALSE(cache.session->Remove(kKept));
  std::uint64_t deleted = 0;
  EXPECT_FALSE(cache.session->TrimTo({0, {}, {}}, &deleted));
  EXPECT_EQ(deleted, 3U);
  refusal = {};
}

// Of a replacement a power cut kept the second renaming and not the first.
TEST(CommitFaults, ContentThatCannotBePutInPlaceYetWaits) {
  for (const int error : {EPERM, EROFS, ENOSPC, EIO}) {
    for (const bool goesOn : {false, true}) {
      Cache cache(Durability::kProcess);
      Configure(cache.scratch, {100000, 9, 65536});
      const std::string content = cache.scratch / internal::ContentName(kInterrupted);
      std::filesystem::rename(content + ".0123456789abcdef-2.commit", content + ".ox_meta");
      refusal = {{"rename"}, error};
      cache.Open();
      EXPECT_EQ(error == EIO, cache.session == nullptr) << error;
      if (error != EIO) {
        EXPECT_EQ(kAbsent, FetchVersion(*cache.session, kInterrupted, &cache.error));
      }
      refusal = {};
      const bool mayFinishLater = error == EROFS || error == ENOSPC;
      if (!goesOn || !mayFinishLater) cache.Open();
      EXPECT_EQ(5, FetchVersion(*cache.session, kInterrupted, &cache.error)) << error;
      CheckAtLast(cache);
    }
  }
}

TEST(CommitFaults, ContentThatWaitsDoesNotComeBackAfterARemoval) {
  Cache cache(Durability::kProcess);
  Configure(cache.scratch, {100000, 9, 65536});
  const std::string content = cache.scratch / internal::ContentName(kInterrupted);
  std::filesystem::rename(content + ".0123456789abcdef-2.commit", content + ".ox_meta");
  refusal = {{"rename"}, EPERM};
  cache.Open();
  refusal = {};
  EXPECT_EQ(ErrorKind::kNotFound, cache.session->Remove(kInterrupted).kind);
  cache.ledger.IsGone(kInterrupted);
  CheckAtLast(cache);
}

// It may be that of any entry of its length, but those have theirs.
TEST(CommitFaults, StagedContentThatCannotBeReadHidesNoEntry) {
  Cache cache(Durability::kProcess);
  const std::string staged = cache.scratch / "ox-0123456789abcdef-3.part";
  WriteWhole(staged, std::string(ContentOf(kKept, 1).size(), 'x'));
  refusal = {{"open"}, EIO, ".part"};
  cache.Open();
  ASSERT_NE(nullptr, cache.session) << cache.error.Message();
  EXPECT_EQ(1, FetchVersion(*cache.session, kKept, &cache.error));
  refusal = {};
  EXPECT_EQ(0U, cache.session->Statistics().restarts);
  EXPECT_FALSE(std::filesystem::exists(staged));
}

// Whatever of it stays while its writer is there, it is not finished over what was stored later.
TEST(CommitFaults, ACommitThatCannotBeTakenBackIsNotFinishedOverALaterOne) {
  beforeChange = [](Cache& /*cache*/) { refusal = {{"rename", "unlinkat"}, EIO}; };
  bool isReached = true;
  for (std::uint64_t k = 1; isReached; ++k) {
    Cache cache(Durability::kProcess);
    cache.Open();
    auto writer = Write(*cache.session, kReplaced, ContentOf(kReplaced, 2), &cache.error);
    changes.Arm(k, Mode::kFromThereOn);
    const bool isCommitted = !writer->Commit(MetadataOf(kReplaced, 2));
    isReached = changes.WasReached();
    changes.Disarm();
    refusal = {};
    if (isCommitted) cache.ledger.Committed(kReplaced, 2);
    if (!isCommitted) cache.ledger.Begin(kReplaced, 2);
    ASSERT_TRUE(Store(*cache.session, kReplaced, 3, &cache.ledger)) << k;
    writer.reset();
    CheckBoth(cache, true);
    ASSERT_FALSE(HasFatalFailure()) << k;
  }
}

// A renaming may need room, too.
TEST(CommitFaults, AFullDiskTakesOldEntriesForAnInterruptedCommit) {
  Cache cache(Durability::kProcess);
  beforeChange = [](Cache& disk) {
    if (Look(disk.scratch.Path()).contentWithoutMetadata.empty() &&
        Look(disk.scratch.Path()).entries.size() == 4) {
      return;
    }
    refusal = {};
  };
  refusal = {{"rename"}, ENOSPC};
  Configure(cache.scratch, {100000, 9, 65536});
  changes.Arm(1, Mode::kFromThereOn);
  cache.Open();
  changes.Disarm();
  refusal = {};
  ASSERT_NE(nullptr, cache.session) << cache.error.Message();
  EXPECT_EQ(5, FetchVersion(*cache.session, kInterrupted, &cache.error));
  EXPECT_EQ(3U, cache.session->Statistics().entries);
  EXPECT_EQ(1U, cache.session->Statistics().evictions[int(session::EvictionReason::kRoom)]);
}

// One old entry goes for the seal; where that gives no room the entry goes without it.
TEST(CommitFaults, AFullDiskTakesAnOldEntryForASeal) {
  const struct {
    bool helps;
    std::uint64_t before;
    std::uint64_t entries;  // afterwards
  } cases[] = {{true, 4, 4}, {true, 1, 1}, {false, 4, 4}, {false, 0, 1}};
  for (const auto& [helps, before, entries] : cases) {
    Cache cache(Durability::kProcess);
    Configure(cache.scratch, {100000, 9, 65536});
    cache.Open();
    ASSERT_FALSE(cache.session->TrimTo({{}, before, {}}, nullptr));
    static bool isLifted;
    static std::uint64_t fewest;
    fewest = before;
    isLifted = helps;
    refusal = {{"fsetxattr"}, ENOSPC};
    beforeChange = [](Cache& disk) {
      if (isLifted && Look(disk.scratch.Path()).entries.size() < fewest) refusal = {};
    };
    changes.Arm(1, Mode::kFromThereOn);
    EXPECT_TRUE(Store(*cache.session, kNew, 1, &cache.ledger));
    changes.Disarm();
    refusal = {};
    EXPECT_EQ(entries, cache.session->Statistics().entries);
    EXPECT_EQ(helps, AllHaveSeals(cache));
    EXPECT_EQ(1, FetchVersion(*cache.session, kNew, &cache.error));
  }
}

// Nor anything that has to be found out to be damaged.
TEST(CommitFaults, AChangeThatFailsLeavesNoFile) {
  static const char* call;
  beforeChange = [](Cache& /*cache*/) { refusal = {{call}, EIO}; };
  for (const char* each : {"fsync", "rename"}) {
    for (const Durability durability : {Durability::kNone, Durability::kPower}) {
      bool isReached = true;
      bool isKept = false;
      for (std::uint64_t k = 1; isReached; ++k) {
        SCOPED_TRACE(each + std::to_string(k));
        call = each;
        Cache cache(durability);
        cache.Open();
        changes.Arm(k, Mode::kOnce);
        cache.Replace(2);
        isKept = isKept || !Look(cache.scratch.Path()).staging.empty();
        Renew(*cache.session, kKept, &cache.ledger);
        isReached = changes.WasReached();
        changes.Disarm();
        refusal = {};
        ASSERT_EQ("", cache.ledger.Check(*cache.session));
        ASSERT_TRUE(Look(cache.scratch.Path()).staging.empty());
        ASSERT_EQ(0U, cache.session->Statistics().damaged);
      }
      // What is decided, or may be for all that the medium holds, still needs its files.
      EXPECT_EQ(durability == Durability::kPower || call == std::string("rename"), isKept) << call;
    }
  }
}

TEST(CommitFaults, WhatCannotBeKeptLeavesNoFile) {
  const struct {
    Refusal refusal;
    ErrorKind kind;
  } cases[] = {{{{"fsetxattr"}, EOPNOTSUPP}, ErrorKind::kRefused},
               {{{"rename"}, EIO}, ErrorKind::kInputOutput}};
  for (const auto& test : cases) {
    Cache cache(Durability::kProcess);
    cache.Open();
    const auto writer = Write(*cache.session, kNew, "new", &cache.error);
    refusal = test.refusal;
    EXPECT_EQ(test.kind, writer->KeepAs(kNew, "m").kind);
    refusal = {};
    EXPECT_EQ(1U, Look(cache.scratch.Path()).staging.size());
    EXPECT_EQ(DiskUse(cache.scratch.Path()), cache.session->Statistics().bytes);
  }
}

// Each step of it fails once. Only content that could not be synchronised is lost.
TEST(CommitFaults, AFailedCommitCanBeTriedAgain) {
  const struct {
    Durability durability;
    const std::string& url;
    const char* call;
    int failures;
  } cases[] = {
      {Durability::kPower, kNew, "fsync", 4},        {Durability::kPower, kNew, "rename", 2},
      {Durability::kPower, kReplaced, "fsync", 3},   {Durability::kPower, kReplaced, "rename", 2},
      {Durability::kProcess, kNew, "futimens", 1},   {Durability::kProcess, kNew, "rename", 1},
      {Durability::kProcess, kReplaced, "rename", 2}};
  static const char* refused;
  beforeChange = [](Cache& /*cache*/) { refusal = {{std::exchange(refused, "none")}, EIO}; };
  for (const auto& [durability, url, call, failures] : cases) {
    int failed = 0;
    bool isReached = true;
    for (std::uint64_t k = 1; isReached; ++k) {
      SCOPED_TRACE(url + " " + call + " " + std::to_string(k));
      Cache cache(durability);
      cache.Open();
      const auto writer = Write(*cache.session, url, ContentOf(url, 2), &cache.error);
      refused = call;
      changes.Arm(k, Mode::kFromThereOn);
      const Error error = writer->Commit(MetadataOf(url, 2));
      isReached = changes.WasReached();
      changes.Disarm();
      refusal = {};
      const bool isLost = error && error.path.find(".part") != std::string::npos;
      if (error) {
        ++failed;
        EXPECT_TRUE(Look(cache.scratch.Path()).metadataWithoutContent.empty());
        EXPECT_EQ(isLost, bool(writer->Commit(MetadataOf(url, 2))));
      }
      if (!isLost) cache.ledger.Committed(url, 2);
      CheckAtLast(cache);
    }
    EXPECT_EQ(failures, failed) << url << " " << call;
  }
}

TEST(CommitFaults, AnOrderOfUseThatStaysLeavesLaterTimes) {
  Cache cache(Durability::kProcess);
  const std::string name = internal::ContentName(kReplaced);
  WriteWhole(cache.scratch / "ox-session.order", "10 " + name + "\n");
  refusal = {{"utimensat", "futimens"}, EPERM};
  for (int version = 2; version < 4; ++version) {
    cache.Open();
    usleep(20000);  // more than the steps of a file's time
    Store(*cache.session, kReplaced, version, &cache.ledger);
    EXPECT_EQ(name, Look(cache.scratch.Path()).entries.back().name);
  }
  refusal = {};
}

}  // namespace
}  // namespace ox::testing

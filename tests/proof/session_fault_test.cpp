// Every allocation, every system call and every change of a session is disturbed in turn: it fails,
// once, from there on or for ever, files are deleted before it, or the process forks. Nothing may
// crash, hang, leak a descriptor, or serve anything but whole versions, and no entry may be lost.
// Afterwards the session that was disturbed works again, and so does the next one.
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <utility>

#include "session/crc32c.h"
#include "session/durable_io.h"
#include "session/entry_name.h"
#include "session/entry_seal.h"
#include "session/metadata_file.h"
#include "tests/support/ledger.h"
#include "tests/support/system_calls.h"

namespace ox::testing {
namespace {

using Mode = FaultDriver::Mode;

const std::string kKept = "http://host/kept";
const std::string kReplaced = "http://host/replaced";
const std::string kRemoved = "http://host/removed";
const std::string kNew = "http://host/new";
const std::string kInterrupted = "http://host/interrupted";
const std::string kUrls[] = {kKept, kReplaced, kRemoved, kNew, kInterrupted};

// The changes that a session makes to its directory, and what happens just before one of them.
struct Cache;
FaultDriver changes;
std::function<void(Cache&)> beforeChange;
Cache* current = nullptr;

struct Cache {
  explicit Cache(Durability durability) : options(OptionsFor(scratch.Path(), durability)) {
    current = this;
    internal::SetFileOperationHook([] {
      if (changes.Next()) beforeChange(*current);
    });
    session = OpenSession(options);
    for (const std::string& url : {kKept, kReplaced, kRemoved, kInterrupted})
      EXPECT_TRUE(Store(*session, url, 1, &ledger));
    session.reset();
    LeaveBehind(5);
  }
  // What killed processes leave: half a file, and a commit that has to be finished.
  void LeaveBehind(int version) {
    const std::string content = scratch / internal::ContentName(kInterrupted);
    WriteWhole(scratch / "ox-0123456789abcdef-1.part", "half");
    const std::string bytes = ContentOf(kInterrupted, version);
    const std::string metadata = MetadataOf(kInterrupted, version);
    const auto seal =
        internal::MakeSeal(kInterrupted, internal::ExtendCrc32c(0, bytes.data(), bytes.size()),
                           bytes.size(), metadata);
    WriteWhole(scratch / "ox-0123456789abcdef-2.part", bytes);
    const std::string commit = content + ".0123456789abcdef-2.commit";
    EXPECT_FALSE(internal::StageMetadataFile(commit, commit, metadata, 0, &seal, false));
    ledger.Committed(kInterrupted, version);
    // Made anew by the opening.
    std::filesystem::remove(scratch / "file-cache.conf");
    options.limits = {100000, 9, 65536, ""};
  }
  void Open() {
    session.reset();
    session = CacheSession::Open(options, &error);
    if (error.kind != ErrorKind::kConfiguration) return;
    // It was deleted: it is never made or read in part.
    const FaultPause pause;
    EXPECT_EQ("(missing)", ReadWhole(scratch / "file-cache.conf")) << error.Message();
  }
  // At the lowest durability the old entry may go with a failed commit.
  void Replace(int version) {
    if (options.durability == Durability::kNone) ledger.MayBeGone(kReplaced);
    Store(*session, kReplaced, version, &ledger);
  }

  CacheDirectory scratch{{100000, 9, 65536}};
  SessionOptions options;
  Ledger ledger;
  Error error;
  std::unique_ptr<CacheSession> session;
};

// Every operation of the session. No restart of the manager at the end, which would hide what a
// fault leaves behind.
void Operate(Cache& cache) {
  if (cache.session == nullptr) return;
  CacheSession& session = *cache.session;
  Error error;
  session.Fetch(kKept, &error);
  RemoveByUrl(session, kRemoved, &cache.ledger);
  Store(session, kRemoved, 2, &cache.ledger);
  static_cast<void>(session.Trim(nullptr));
  static_cast<void>(session.SetLimits(cache.options.limits));
  cache.Replace(2);
  Produce(session, kNew, 1, &cache.ledger);
  Write(session, kKept, "given up", &error);
  Renew(session, kKept, &cache.ledger);
  Remove(session, kRemoved, &cache.ledger);
  cache.Replace(3);
  session.Fetch(kNew, &error);
  session.List(&error);
}

// With a recovery at its start.
void History(Cache& cache) {
  cache.Open();
  Operate(cache);
}

// Empty when another session finds that every operation of the history has succeeded.
std::string WhatFailed(Cache& cache) {
  cache.Open();
  if (cache.session == nullptr) return cache.error.Message();
  Ledger strict;
  strict.Committed(kKept, 1 + kRenewal);
  strict.Committed(kInterrupted, 5);
  strict.Committed(kReplaced, 3);
  strict.Committed(kNew, 1);
  strict.IsGone(kRemoved);
  return strict.Check(*cache.session);
}

bool AllHaveSeals(const Cache& cache) {
  const internal::Survey survey = Look(cache.scratch.Path());
  return std::all_of(
      survey.entries.begin(), survey.entries.end(), [&](const internal::SurveyedEntry& entry) {
        return internal::ReadSeal(cache.scratch / std::string(entry.name) + ".ox_meta").has_value();
      });
}

// All entries are there, and every URL can be stored at once.
void GoOn(Cache& cache) {
  ASSERT_NE(nullptr, cache.session) << cache.error.Message();
  ASSERT_EQ("", cache.ledger.Check(*cache.session));
  for (const std::string& url : kUrls)
    ASSERT_TRUE(Store(*cache.session, url, 9, &cache.ledger)) << url;
  ASSERT_EQ("", cache.ledger.Check(*cache.session));
}

void CheckAtLast(Cache& cache) {
  cache.Open();
  ASSERT_NO_FATAL_FAILURE(GoOn(cache));
  EXPECT_EQ(5U, cache.session->Statistics().entries);
  EXPECT_EQ(DiskUse(cache.scratch.Path()), cache.session->Statistics().bytes);
}

// The session that was disturbed goes on, or another takes over.
void CheckBoth(Cache& cache, bool goesOn) {
  if (goesOn && cache.session != nullptr) {
    ASSERT_NO_FATAL_FAILURE(GoOn(cache));
  }
  CheckAtLast(cache);
}

bool IsLongRun() {
  return std::getenv("OX_PROVE") != nullptr;
}

// For k = 1, 2, ... until `reaches` says that the k-th call, allocation or change did not happen
// any more. Gives the number of cases.
using Case = std::function<bool(Durability durability, Mode mode, std::uint64_t k)>;
int ForEach(std::initializer_list<Mode> modes, const Case& reaches) {
  int cases = 0;
  for (const auto durability : {Durability::kNone, Durability::kProcess, Durability::kPower}) {
    for (const auto mode : modes) {
      bool isReached = true;
      for (std::uint64_t k = 1; isReached; ++k) {
        if (!IsLongRun() && (k + static_cast<unsigned>(durability)) % 2 == 0) continue;
        ++cases;
        SCOPED_TRACE(::testing::Message() << "durability " << int(durability) << ", call " << k);
        alarm(20);  // whatever hangs fails
        isReached = reaches(durability, mode, k);
        if (::testing::Test::HasFailure()) return cases;
      }
    }
  }
  alarm(0);
  return cases;
}

// Fails or disturbs each in turn; where `mayLose`, files of entries go on the way.
int DisturbEach(FaultDriver& driver, std::initializer_list<Mode> modes, bool mayLose) {
  return ForEach(modes, [&](Durability durability, Mode mode, std::uint64_t k) {
    bool isReached = false;
    for (const bool goesOn : {false, true}) {
      if (!IsLongRun() && goesOn == (k % 2 == 0)) continue;
      const auto descriptors = OpenDescriptors();
      {
        Cache cache(durability);
        driver.Arm(k, mode);
        History(cache);
        isReached = driver.WasReached();
        driver.Disarm();
        if (mayLose) cache.ledger.AnyMayBeGone();
        EXPECT_TRUE(AllHaveSeals(cache));
        CheckBoth(cache, goesOn);
      }
      EXPECT_EQ(descriptors, OpenDescriptors());
    }
    return isReached;
  });
}

TEST(SessionFaults, AtEveryAllocation) {
  std::printf("%d failed allocations\n",
              DisturbEach(allocationFaults, {Mode::kOnce, Mode::kFromThereOn}, false));
}

TEST(SessionFaults, AtEverySystemCall) {
  std::printf("%d failed system calls\n",
              DisturbEach(callFaults, {Mode::kOnce, Mode::kFromThereOn}, false));
}

// A power cut kept the commit file and not the name of the new content: the old entry stays. Or it
// kept the metadata's place and not the content's: the new entry is there.
TEST(SessionFaults, AtEverySystemCallOnAHalfPlacedCommit) {
  static bool isMetadataPlaced;
  for (const bool isPlaced : {false, true}) {
    isMetadataPlaced = isPlaced;
    ForEach(
        {Mode::kOnce, Mode::kFromThereOn}, [](Durability durability, Mode mode, std::uint64_t k) {
          Cache cache(durability);
          const std::string content = cache.scratch / internal::ContentName(kInterrupted);
          if (isMetadataPlaced) {
            std::filesystem::rename(content + ".0123456789abcdef-2.commit", content + ".ox_meta");
          } else {
            std::filesystem::remove(cache.scratch / "ox-0123456789abcdef-2.part");
            cache.ledger.Committed(kInterrupted, 1);
          }
          callFaults.Arm(k, mode);
          cache.Open();
          const bool isReached = callFaults.WasReached();
          callFaults.Disarm();
          CheckAtLast(cache);
          return isReached;
        });
  }
}

// The manager counts the length of the metadata that it knows, not of what is on the disk.
TEST(SessionFaults, AReplacementWithoutMemoryCostsNoOtherEntry) {
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

TEST(SessionFaults, InterruptedAndShortCallsGoOn) {
  const int cases = ForEach({Mode::kOnce}, [](Durability durability, Mode mode, std::uint64_t k) {
    Cache cache(durability);
    areTransfersShort = k == 1;
    callInterrupts.Arm(k, mode);
    History(cache);
    const auto whole = cache.session->FetchWhole(kKept, &cache.error);
    EXPECT_TRUE(whole && whole->content == ContentOf(kKept, 1)) << cache.error.Message();
    const bool isReached = callInterrupts.WasReached();
    callInterrupts.Disarm();
    EXPECT_EQ("", WhatFailed(cache));
    areTransfersShort = false;
    return isReached;
  });
  std::printf("%d interrupted system calls\n", cases - 3);
}

// For the whole life of a session, and for one that was opened before.
TEST(SessionFaults, WhatTheSystemNeverDoes) {
  const struct {
    const char* call;
    bool isDispensable;  // a refusal that lasts keeps nothing from succeeding
  } cases[] = {{"create", false},   {"list", false},      {"open", false},     {"read", false},
               {"pread", false},    {"write", false},     {"ftruncate", true}, {"fsync", true},
               {"rename", false},   {"link", true},       {"unlinkat", false}, {"utimensat", true},
               {"futimens", true},  {"fstatat", false},   {"mkdir", true},     {"fdopendir", false},
               {"readdir", false},  {"flock", false},     {"fsetxattr", true}, {"fgetxattr", true},
               {"lgetxattr", true}, {"faccessat", false}, {"getrandom", true}, {"lseek", true}};
  int lives = 0;
  for (const auto& [call, isDispensable] : cases) {
    for (const int error : {EINVAL, EPERM, ENOSYS, EOPNOTSUPP, EIO, ENOSPC}) {
      SCOPED_TRACE(std::string(call) + ": " + std::strerror(error));
      lives += ForEach({Mode::kOnce}, [&](Durability durability, Mode /*mode*/, std::uint64_t k) {
        const bool isOpenBefore = k == 1;
        Cache cache(durability);
        if (isOpenBefore) cache.Open();
        refusal = {{call}, error};
        if (!isOpenBefore) cache.Open();
        Operate(cache);
        cache.session.reset();
        refusal = {};
        // Entries were evicted, in vain.
        if (error == ENOSPC) cache.ledger.AnyMayBeGone();
        const bool mayLackSeals = std::strstr(call, "xattr") != nullptr && error != EIO;
        EXPECT_TRUE(mayLackSeals || AllHaveSeals(cache));
        if (isDispensable && internal::IsLastingRefusal(error)) {
          // No commit is weaker than it says.
          const bool mustFail = durability == Durability::kPower && std::strcmp(call, "fsync") == 0;
          EXPECT_EQ(mustFail, !WhatFailed(cache).empty());
        }
        CheckAtLast(cache);
        return isOpenBefore;
      });
    }
  }
  std::printf("%d lives with a call refused\n", lives);
}

// A commit at each of its stages, and a pair that is no entry. What is done to its entry before the
// commit can be finished is not undone by finishing it.
TEST(SessionFaults, ACommitThatCannotBeFinishedKeepsNothingFromOpening) {
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
        // Writable again, the commit is finished before anything is stored over it.
        const bool goesOn = test.error == EROFS || test.error == ENOSPC;
        CheckBoth(cache, goesOn);
        EXPECT_EQ(0U, cache.session->Statistics().damaged);
      }
    }
  }
}

TEST(SessionFaults, ACommitThatWaitsHoldsUpNoOtherEntry) {
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
TEST(SessionFaults, ContentThatCannotBePutInPlaceYetWaits) {
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
      const bool mayPass = error == EROFS || error == ENOSPC;
      if (!goesOn || !mayPass) cache.Open();
      EXPECT_EQ(5, FetchVersion(*cache.session, kInterrupted, &cache.error)) << error;
      CheckAtLast(cache);
    }
  }
}

// A renaming may need room, too.
TEST(SessionFaults, AFullDiskTakesOldEntriesForAnInterruptedCommit) {
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
TEST(SessionFaults, AFullDiskTakesAnOldEntryForASeal) {
  const struct {
    bool helps;
    bool isEmpty;
    std::uint64_t entries;  // afterwards
  } cases[] = {{true, false, 4}, {false, false, 4}, {false, true, 1}};
  for (const auto& [helps, isEmpty, entries] : cases) {
    Cache cache(Durability::kProcess);
    Configure(cache.scratch, {100000, 9, 65536});
    cache.Open();
    ASSERT_FALSE(isEmpty && cache.session->Clear(nullptr));
    static bool isLifted;
    isLifted = helps;
    refusal = {{"fsetxattr"}, ENOSPC};
    beforeChange = [](Cache& disk) {
      if (isLifted && Look(disk.scratch.Path()).entries.size() < 4) refusal = {};
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
TEST(SessionFaults, AChangeThatFailsLeavesNoFile) {
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

TEST(SessionFaults, WhatCannotBeKeptLeavesNoFile) {
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
TEST(SessionFaults, AFailedCommitCanBeTriedAgain) {
  const struct {
    const std::string& url;
    const char* call;
    int failures;
  } cases[] = {
      {kNew, "fsync", 4}, {kNew, "rename", 2}, {kReplaced, "fsync", 3}, {kReplaced, "rename", 2}};
  static const char* refused;
  beforeChange = [](Cache& /*cache*/) { refusal = {{std::exchange(refused, "none")}, EIO}; };
  for (const auto& [url, call, failures] : cases) {
    int failed = 0;
    bool isReached = true;
    for (std::uint64_t k = 1; isReached; ++k) {
      SCOPED_TRACE(url + " " + call + " " + std::to_string(k));
      Cache cache(Durability::kPower);
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
        EXPECT_EQ(isLost, bool(writer->Commit(MetadataOf(url, 2))));
      }
      if (!isLost) cache.ledger.Committed(url, 2);
      CheckAtLast(cache);
    }
    EXPECT_EQ(failures, failed) << url << " " << call;
  }
}

TEST(SessionFaults, AnOrderOfUseThatStaysLeavesLaterTimes) {
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

TEST(SessionFaults, FilesDeletedAtEveryChange) {
  const struct {
    const char* pattern;
    bool mayLose;
  } cases[] = {{"ox-*.part", false},       {"ox-*.meta", false},
               {"*.commit", false},        {"ox-session.lock", false},
               {"file-cache.conf", false}, {"????????????????????????????????", true},
               {"*.ox_meta", true},        {"*", true}};
  int deletions = 0;
  for (const auto& test : cases) {
    SCOPED_TRACE(test.pattern);
    beforeChange = [&](Cache& cache) {
      for (const auto& file : std::filesystem::directory_iterator(cache.scratch.Path())) {
        if (fnmatch(test.pattern, file.path().filename().c_str(), 0) != 0) continue;
        std::filesystem::remove(file.path());
      }
      // Of a commit that is not finished before, the old entry serves.
      cache.ledger.Begin(kInterrupted, 1);
      // Without its commit file a replacement can neither be finished nor undone.
      cache.ledger.MayBeGone(kInterrupted);
      cache.ledger.MayBeGone(kReplaced);
    };
    deletions += DisturbEach(changes, {Mode::kOnce}, test.mayLose);
  }
  std::printf("%d deletions of files of the cache\n", deletions);
}

// In a child that another thread has made: it touches nothing, and waits for no thread that is not
// there.
bool IsOfNoUse(std::unique_ptr<CacheSession> session) {
  if (session == nullptr) return true;
  Error errors[6];
  session->Store(kNew, &errors[0]);
  session->Fetch(kKept, &errors[1]);
  errors[2] = session->SetMetadata(kKept, "child");
  errors[3] = session->Remove(kKept);
  errors[4] = session->Trim(nullptr);
  errors[5] = session->SetLimits({2000, 2, 2000, ""});
  return session->Statistics().entries == 0 &&
         std::all_of(std::begin(errors), std::end(errors),
                     [](const Error& error) { return error.kind == ErrorKind::kInUse; });
}

// In a child that has the memory of the operation itself and unwinds it.
[[noreturn]] void Unwind() {
  std::set_terminate([] { _exit(0); });  // in the module and in destructors
  throw std::bad_alloc();
}

TEST(SessionFaults, ForksAtEveryChange) {
  int forks = 0;
  const pid_t parent = getpid();
  for (const bool isUnwound : {false, true}) {
    beforeChange = [&](Cache& cache) {
      const pid_t child = fork();
      if (child == 0) {
        alarm(5);
        if (isUnwound) Unwind();
        _exit(IsOfNoUse(std::move(cache.session)) ? 0 : 1);
      }
      int status = 0;
      waitpid(child, &status, 0);
      EXPECT_EQ(0, status);
    };
    forks += ForEach({Mode::kOnce}, [&](Durability durability, Mode mode, std::uint64_t k) {
      Cache cache(durability);
      changes.Arm(k, mode);
      History(cache);
      cache.session.reset();
      if (getpid() != parent) _exit(0);
      const bool isReached = changes.WasReached();
      changes.Disarm();
      EXPECT_EQ("", WhatFailed(cache));
      return isReached;
    });
  }
  std::printf("%d forks\n", forks - 6);
}

}  // namespace
}  // namespace ox::testing

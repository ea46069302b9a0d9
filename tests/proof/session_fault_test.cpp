// Every allocation, every system call and every change of a session is disturbed in turn: it fails,
// once, from there on or for ever, files are deleted before it, or the process forks. Nothing may
// crash, hang, leak a descriptor, or serve anything but whole versions, and no entry may be lost.
// Afterwards the session that was disturbed works again, and so does the next one.
#include <fnmatch.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <new>

#include "session/entry_name.h"
#include "session/errno_meaning.h"
#include "tests/proof/session_fault_rig.h"

namespace ox::testing {
namespace {

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
  static_cast<void>(session.TrimTo({}, nullptr));
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
        alarm(120);  // whatever hangs fails
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
        alarm(60);
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

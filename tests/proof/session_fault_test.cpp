// Every allocation and every system call of a session fails in turn, once and from there on.
// Nothing may crash, leak a descriptor, or serve anything but whole versions. Once calls succeed
// again, the session that met the fault works again, and so does the next one.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "tests/support/ledger.h"
#include "tests/support/system_calls.h"

namespace ox::testing {
namespace {

const std::string kKept = "http://host/kept";
const std::string kReplaced = "http://host/replaced";
const std::string kRemoved = "http://host/removed";
const std::string kNew = "http://host/new";
const std::string kUrls[] = {kKept, kReplaced, kRemoved, kNew};

struct Cache {
  explicit Cache(Durability durability) : options(OptionsFor(scratch.Path(), durability)) {
    session = OpenSession(options);
    for (const std::string& url : {kKept, kReplaced, kRemoved})
      EXPECT_TRUE(Store(*session, url, 1, &ledger));
    session.reset();
  }
  void Open() {
    session.reset();
    session = CacheSession::Open(options, &error);
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

// Every operation of the session, with a recovery at its start. No restart of the manager at the
// end, which would hide what a fault leaves behind.
void History(Cache& cache) {
  cache.Open();
  if (cache.session == nullptr) return;
  CacheSession& session = *cache.session;
  Error error;
  session.Fetch(kKept, &error);
  RemoveByUrl(session, kRemoved, &cache.ledger);
  Store(session, kRemoved, 2, &cache.ledger);
  static_cast<void>(session.Trim(nullptr));
  cache.Replace(2);
  Produce(session, kNew, 1, &cache.ledger);
  Write(session, kKept, "given up", &error);
  Remove(session, kRemoved, &cache.ledger);
  cache.Replace(3);
  session.Fetch(kNew, &error);
  session.List(&error);
}

struct Sweep {
  int cases = 0;
  int entriesLost = 0;
};

// The session that met the fault goes on, has all entries, and takes every URL at once.
void GoOn(Cache& cache) {
  ASSERT_EQ("", cache.ledger.Check(*cache.session));
  for (const std::string& url : kUrls) {
    ASSERT_TRUE(Store(*cache.session, url, 9, &cache.ledger)) << url;
  }
}

// Another session takes over and finds what was there; only where a call that looks at the
// directory failed may it be less.
void StartAnew(Cache& cache, bool mayLose, Sweep* sweep) {
  cache.Open();
  ASSERT_NE(nullptr, cache.session) << cache.error.Message();
  if (mayLose) {
    sweep->entriesLost += cache.ledger.Check(*cache.session).empty() ? 0 : 1;
    cache.ledger.AnyMayBeGone();
  }
  ASSERT_EQ("", cache.ledger.Check(*cache.session));
  for (const std::string& url : kUrls)
    ASSERT_TRUE(Store(*cache.session, url, 9, &cache.ledger)) << url;
}

void CheckAtLast(Cache& cache) {
  ASSERT_EQ("", cache.ledger.Check(*cache.session));
  cache.Open();
  ASSERT_NE(nullptr, cache.session) << cache.error.Message();
  EXPECT_EQ("", cache.ledger.Check(*cache.session));
  EXPECT_EQ(4U, cache.session->Statistics().entries);
  EXPECT_EQ(DiskUse(cache.scratch.Path()), cache.session->Statistics().bytes);
}

struct Fault {
  FaultDriver& driver;
  std::uint64_t call;
  FaultDriver::Mode mode;
};

// True when the history met its fault.
bool FailOne(const Fault& fault, Durability durability, bool mayLose, bool goesOn, Sweep* sweep) {
  const auto descriptors = OpenDescriptors();
  Cache cache(durability);
  fault.driver.Arm(fault.call, fault.mode);
  History(cache);
  const bool reached = fault.driver.WasReached();
  fault.driver.Disarm();
  if (goesOn && cache.session != nullptr) {
    GoOn(cache);
  } else {
    StartAnew(cache, mayLose, sweep);
  }
  if (!::testing::Test::HasFailure()) CheckAtLast(cache);
  cache.session.reset();
  EXPECT_EQ(descriptors, OpenDescriptors());
  ++sweep->cases;
  return reached;
}

void FailEachInEveryWay(FaultDriver& faults, const char* what, bool mayLose) {
  const bool isLongRun = std::getenv("OX_PROVE") != nullptr;
  Sweep sweep;
  for (const auto durability : {Durability::kNone, Durability::kProcess, Durability::kPower}) {
    for (const auto mode : {FaultDriver::Mode::kOnce, FaultDriver::Mode::kFromThereOn}) {
      std::uint64_t k = 1;
      for (bool isReached = true; isReached; ++k) {
        for (const bool goesOn : {false, true}) {
          if (!isLongRun && goesOn == (k % 2 == 0)) continue;
          isReached = FailOne({faults, k, mode}, durability, mayLose, goesOn, &sweep);
          ASSERT_FALSE(::testing::Test::HasFailure()) << "call " << k;
        }
      }
    }
  }
  std::printf("%d failed %s; an entry was gone afterwards in %d cases\n", sweep.cases, what,
              sweep.entriesLost);
}

TEST(SessionFaults, AtEveryAllocation) {
  FailEachInEveryWay(allocationFaults, "allocations", false);
}

TEST(SessionFaults, AtEverySystemCall) {
  FailEachInEveryWay(callFaults, "system calls", true);
}

TEST(SessionFaults, InterruptedCallsAreTriedAgain) {
  std::uint64_t k = 1;
  for (bool isReached = true; isReached; ++k) {
    Cache cache(Durability::kPower);
    callInterrupts.Arm(k, FaultDriver::Mode::kOnce);
    History(cache);
    isReached = callInterrupts.WasReached();
    callInterrupts.Disarm();
    Ledger strict;
    strict.Committed(kKept, 1);
    strict.Committed(kReplaced, 3);
    strict.Committed(kNew, 1);
    strict.IsGone(kRemoved);
    cache.Open();
    ASSERT_NE(nullptr, cache.session) << cache.error.Message();
    ASSERT_EQ("", strict.Check(*cache.session)) << "call " << k;
  }
  std::printf("%d interrupted system calls\n", static_cast<int>(k - 2));
}

}  // namespace
}  // namespace ox::testing

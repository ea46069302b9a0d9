// Every allocation and every system call of a session fails in turn, once and from there on.
// Nothing may crash, leak a descriptor, or serve anything but whole versions; the cache works again
// afterwards.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "tests/support/ledger.h"
#include "tests/support/system_calls.h"

namespace ox::testing {
namespace {

const std::string kKept = "http://host/kept";
const std::string kReplaced = "http://host/replaced";
const std::string kRemoved = "http://host/removed";
const std::string kNew = "http://host/new";

struct Cache {
  explicit Cache(Durability durability) {
    WriteWhole(scratch / "file-cache.conf", "MAX_CACHE_ENTRIES=4\nMAX_CACHE_SIZE=20000\n");
    options.durability = durability;
    const auto session = OpenSession(options);
    for (const std::string& url : {kKept, kReplaced, kRemoved})
      EXPECT_TRUE(Store(*session, url, 1, &ledger));
  }
  std::unique_ptr<CacheSession> Open() { return CacheSession::Open(options, &error); }

  ScratchDirectory scratch;
  SessionOptions options = OptionsFor(scratch.Path());
  Ledger ledger;
  Error error;
};

// Every operation of the session, with a recovery at its start.
void History(Cache& cache) {
  auto session = cache.Open();
  if (session == nullptr) return;
  Error error;
  session->Fetch(kKept, &error);
  Store(*session, kReplaced, 2, &cache.ledger);
  Store(*session, kNew, 1, &cache.ledger);
  {
    const auto dropped = session->Store(kKept, &error);
    if (dropped != nullptr) static_cast<void>(dropped->Write("half", 4));
  }
  cache.ledger.MayBeGone(kRemoved);
  if (!session->Remove(kRemoved)) cache.ledger.IsGone(kRemoved);
  Store(*session, kReplaced, 3, &cache.ledger);
  static_cast<void>(session->Trim(nullptr));
  session->Fetch(kNew, &error);
}

struct Sweep {
  int cases = 0;
  int entriesLost = 0;
};

void CheckAfterwards(Cache& cache, bool mayLose, Sweep* sweep) {
  auto session = cache.Open();
  ASSERT_NE(nullptr, session) << cache.error.Message();
  const std::string lost = cache.ledger.Check(*session);
  if (mayLose) {
    sweep->entriesLost += lost.empty() ? 0 : 1;
    cache.ledger.AnyMayBeGone();
  }
  EXPECT_EQ("", cache.ledger.Check(*session));
  EXPECT_TRUE(Store(*session, kKept, 9, &cache.ledger));
  EXPECT_EQ("", cache.ledger.Check(*session));
  const auto statistics = session->Statistics();
  session.reset();
  session = cache.Open();
  ASSERT_NE(nullptr, session) << cache.error.Message();
  EXPECT_EQ(statistics.bytes, session->Statistics().bytes);
  EXPECT_EQ(statistics.entries, session->Statistics().entries);
}

Sweep FailEach(FaultDriver& faults, Durability durability, FaultDriver::Mode mode, bool mayLose) {
  Sweep sweep;
  for (std::uint64_t k = 1;; ++k) {
    Cache cache(durability);
    const auto descriptors = OpenDescriptors();
    faults.Arm(k, mode);
    History(cache);
    const bool reached = faults.WasReached();
    faults.Disarm();
    EXPECT_EQ(descriptors, OpenDescriptors()) << "call " << k;
    CheckAfterwards(cache, mayLose, &sweep);
    if (!reached || ::testing::Test::HasFailure()) {
      EXPECT_FALSE(::testing::Test::HasFailure()) << "call " << k;
      return sweep;
    }
    ++sweep.cases;
  }
}

void FailEachInEveryWay(FaultDriver& faults, const char* what, bool mayLose) {
  Sweep sum;
  for (const auto durability : {Durability::kProcess, Durability::kPower}) {
    for (const auto mode : {FaultDriver::Mode::kOnce, FaultDriver::Mode::kFromThereOn}) {
      const Sweep sweep = FailEach(faults, durability, mode, mayLose);
      sum.cases += sweep.cases;
      sum.entriesLost += sweep.entriesLost;
    }
  }
  std::printf("%d failed %s; an entry was gone afterwards in %d cases\n", sum.cases, what,
              sum.entriesLost);
}

TEST(SessionFaults, AtEveryAllocation) {
  FailEachInEveryWay(allocationFaults, "allocations", false);
}

TEST(SessionFaults, AtEverySystemCall) {
  FailEachInEveryWay(callFaults, "system calls", true);
}

TEST(SessionFaults, InterruptedCallsAreTriedAgain) {
  for (std::uint64_t k = 1;; ++k) {
    Cache cache(Durability::kPower);
    callInterrupts.Arm(k, FaultDriver::Mode::kOnce);
    History(cache);
    const bool reached = callInterrupts.WasReached();
    callInterrupts.Disarm();
    const auto session = cache.Open();
    ASSERT_NE(nullptr, session) << cache.error.Message();
    Ledger strict;
    strict.Committed(kKept, 1);
    strict.Committed(kReplaced, 3);
    strict.Committed(kNew, 1);
    strict.IsGone(kRemoved);
    ASSERT_EQ("", strict.Check(*session)) << "call " << k;
    if (reached) continue;
    std::printf("%d interrupted system calls\n", static_cast<int>(k - 1));
    break;
  }
}

}  // namespace
}  // namespace ox::testing

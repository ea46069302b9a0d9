// The power is cut after every single change that a history makes to the disk, and what was not
// synchronised is lost, torn or reordered. What Commit reported at durability "power" is there
// exactly, nothing uncommitted is served, no file stays that belongs to nobody, and a second start
// changes nothing. The start that puts things in order is cut in the same way.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "tests/support/crash_states.h"
#include "tests/support/ledger.h"
#include "tests/support/system_calls.h"

namespace ox::testing {
namespace {

bool IsLongRun() {
  return std::getenv("OX_PROVE") != nullptr;
}

SessionOptions OptionsFor(const std::string& directory, Durability durability) {
  SessionOptions options = testing::OptionsFor(directory);
  options.durability = durability;
  options.touchInterval = std::chrono::hours(1);
  return options;
}

// A history on the disk, with what the cache may hold at each point of its journal.
class Recording {
 public:
  // Where entries may be evicted, or calls fail, any may be gone.
  Recording(const std::string& configuration, bool mayLose) : mayLose_(mayLose) {
    WriteWhole(scratch_ / "file-cache.conf", configuration);
  }

  void Run(Durability durability, const std::function<void(CacheSession&, Recording&)>& history) {
    {
      const FaultPause pause;
      start_ = ReadImage(scratch_.Path());
      journal_ = std::make_unique<Journal>(scratch_.Path());
    }
    Error error;
    const auto session = CacheSession::Open(OptionsFor(scratch_.Path(), durability), &error);
    Note();
    if (session != nullptr) history(*session, *this);
    operations_ = journal_->Operations();
    journal_.reset();
  }

  void Put(CacheSession& session, const std::string& url, int version) {
    Error error;
    const std::string content = ContentOf(url, version);
    const auto writer = session.Store(url, &error);
    if (writer == nullptr || writer->Write(content.data(), content.size())) return;
    ledger_.Begin(url, version);
    Note();
    if (writer->Commit(MetaDataOf(url, version))) return;
    ledger_.Committed(url, version);
    ++committed_;
    Note();
  }

  void Remove(CacheSession& session, const std::string& url) {
    ledger_.MayBeGone(url);
    Note();
    static_cast<void>(session.Remove(url));
  }

  const Ledger& LedgerAt(std::size_t cut) const {
    return std::prev(ledgers_.upper_bound(cut))->second;
  }
  int Committed() const { return committed_; }
  const DiskImage& Start() const { return start_; }
  const std::vector<FileOperation>& Operations() const { return operations_; }

 private:
  // Anything done from here on happens under the ledger as it now stands.
  void Note() {
    if (mayLose_) ledger_.AnyMayBeGone();
    ledgers_[journal_->Operations().size()] = ledger_;
  }

  const bool mayLose_;
  ScratchDirectory scratch_;
  DiskImage start_;
  std::unique_ptr<Journal> journal_;
  std::vector<FileOperation> operations_;
  Ledger ledger_;
  int committed_ = 0;
  std::map<std::size_t, Ledger> ledgers_{{0, Ledger()}};
};

DiskImage WithoutLock(DiskImage image) {
  image.erase("ox-session.lock");
  return image;
}

// Every file is the configuration, the lock, or one of a pair.
std::string FileOfNobody(const DiskImage& image) {
  const std::string suffix = ".ox_meta";
  for (const auto& [name, file] : image) {
    if (name == "file-cache.conf" || name == "ox-session.lock") continue;
    const bool isMetaData = name.size() > suffix.size() &&
                            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
    const std::string partner =
        isMetaData ? name.substr(0, name.size() - suffix.size()) : name + suffix;
    if (image.count(partner) == 0) return name;
  }
  return {};
}

struct Counts {
  int operations = 0;
  int states = 0;
  int statesOfRecovery = 0;
};

void CheckState(const DiskImage& image, const Ledger& ledger,
                std::vector<FileOperation>* recovery) {
  const ScratchDirectory scratch;
  WriteImage(image, scratch.Path());
  const SessionOptions options = OptionsFor(scratch.Path(), Durability::kPower);
  DiskImage afterFirst;
  for (const bool isFirst : {true, false}) {
    Error error;
    std::unique_ptr<Journal> journal;
    if (isFirst && recovery != nullptr) journal = std::make_unique<Journal>(scratch.Path());
    auto session = CacheSession::Open(options, &error);
    if (journal != nullptr) *recovery = journal->Operations();
    journal.reset();
    ASSERT_NE(nullptr, session) << error.Message();
    ASSERT_EQ("", ledger.Check(*session));
    session.reset();
    const DiskImage after = ReadImage(scratch.Path());
    ASSERT_EQ("", FileOfNobody(after));
    if (isFirst) {
      afterFirst = WithoutLock(after);
    } else {
      ASSERT_TRUE(afterFirst == WithoutLock(after)) << "the second start changed something";
    }
  }
}

// Also cuts the start that follows the cut, for one in `stride` states.
void CutEverywhere(const Recording& recording, std::size_t most, unsigned stride, Counts* counts) {
  std::mt19937 random(1);
  const CrashStates states(recording.Start(), recording.Operations());
  for (std::size_t cut = 0; cut <= recording.Operations().size(); ++cut) {
    const Ledger& ledger = recording.LedgerAt(cut);
    for (const DiskImage& image : states.After(cut, most, &random)) {
      const bool goesOn = ++counts->states % static_cast<int>(stride) == 0;
      std::vector<FileOperation> recovery;
      CheckState(image, ledger, goesOn ? &recovery : nullptr);
      ASSERT_FALSE(::testing::Test::HasFatalFailure()) << "cut " << cut;
      const CrashStates again(image, recovery);
      for (std::size_t second = 1; second < recovery.size(); ++second) {
        for (const DiskImage& worse : again.After(second, most / 4, &random)) {
          ++counts->statesOfRecovery;
          CheckState(worse, ledger, nullptr);
          ASSERT_FALSE(::testing::Test::HasFatalFailure()) << "cuts " << cut << ", " << second;
        }
      }
    }
  }
  counts->operations += static_cast<int>(recording.Operations().size());
}

void StoreReplaceRemove(CacheSession& session, Recording& recording) {
  recording.Put(session, "http://a/1", 1);
  recording.Put(session, "http://a/2", 1);
  recording.Put(session, "http://a/1", 2);
  {
    Error error;
    const auto dropped = session.Store("http://a/1", &error);
    if (dropped != nullptr) static_cast<void>(dropped->Write("never committed", 15));
  }
  recording.Remove(session, "http://a/2");
  recording.Put(session, "http://a/2", 3);
  recording.Put(session, "http://a/1", 4);
}

// Two writers that overlap, and entries that must go.
void CrowdedHistory(CacheSession& session, Recording& recording) {
  Error error;
  const auto other = session.Store("http://b/other", &error);
  static_cast<void>(other->Write("half of it", 10));
  for (int i = 1; i <= 6; ++i)
    recording.Put(session, "http://b/" + std::to_string(i % 4), i);
  static_cast<void>(session.Trim(nullptr));
  recording.Put(session, "http://b/0", 9);
}

void Prove(const std::string& configuration, bool mayEvict, int commits,
           const std::function<void(CacheSession&, Recording&)>& history) {
  Recording recording(configuration, mayEvict);
  recording.Run(Durability::kPower, history);
  ASSERT_EQ(commits, recording.Committed());
  Counts counts;
  CutEverywhere(recording, IsLongRun() ? 128 : 12, IsLongRun() ? 10 : 60, &counts);
  std::printf("%d operations, %d states of the disk, %d more of cuts in the start after\n",
              counts.operations, counts.states, counts.statesOfRecovery);
}

TEST(PowerLoss, StoreReplaceRemove) {
  Prove("MAX_CACHE_ENTRIES=9\n", false, 5, &StoreReplaceRemove);
}

TEST(PowerLoss, WithEvictionAndSeveralWriters) {
  Prove("MAX_CACHE_ENTRIES=3\nMAX_CACHE_SIZE=6000\n", true, 7, &CrowdedHistory);
}

// A call fails, and then the power does. What was done to undo a failed commit may be what is lost.
TEST(PowerLoss, AfterAFailedCall) {
  std::mt19937 random(1);
  int checked = 0;
  std::uint64_t call = 1;
  for (bool isReached = true; isReached; ++call) {
    Recording recording("MAX_CACHE_ENTRIES=9\n", true);
    callFaults.Arm(call, FaultDriver::Mode::kOnce);
    recording.Run(Durability::kPower, &StoreReplaceRemove);
    isReached = callFaults.WasReached();
    callFaults.Disarm();
    const CrashStates states(recording.Start(), recording.Operations());
    const std::size_t end = recording.Operations().size();
    for (std::size_t cut = random() % 8; cut <= end; cut += IsLongRun() ? 4 : 24) {
      for (const DiskImage& image : states.After(cut, IsLongRun() ? 16 : 4, &random)) {
        CheckState(image, recording.LedgerAt(cut), nullptr);
        ++checked;
        ASSERT_FALSE(HasFatalFailure()) << "call " << call << ", cut " << cut;
      }
    }
  }
  std::printf("%d failed calls, %d states of the disk\n", static_cast<int>(call - 2), checked);
}

// At durability "process" any point where a kill strikes leaves the old or the new entry.
TEST(Kill, AfterEveryChange) {
  Recording recording("MAX_CACHE_ENTRIES=9\n", false);
  recording.Run(Durability::kProcess, &StoreReplaceRemove);
  std::mt19937 random(1);
  const CrashStates states(recording.Start(), recording.Operations());
  for (std::size_t cut = 0; cut <= recording.Operations().size(); ++cut) {
    CheckState(states.After(cut, 1, &random).front(), recording.LedgerAt(cut), nullptr);
    ASSERT_FALSE(HasFatalFailure()) << "cut " << cut;
  }
  std::printf("%zu operations\n", recording.Operations().size());
}

// The proof itself: at a lower durability the same cuts must find losses.
TEST(PowerLoss, WouldBeNoticed) {
  Recording recording("MAX_CACHE_ENTRIES=9\n", false);
  recording.Run(Durability::kProcess, &StoreReplaceRemove);
  std::mt19937 random(1);
  const CrashStates states(recording.Start(), recording.Operations());
  const std::size_t end = recording.Operations().size();
  int losses = 0;
  for (const DiskImage& image : states.After(end, 50, &random)) {
    const ScratchDirectory scratch;
    WriteImage(image, scratch.Path());
    Error error;
    const auto session = CacheSession::Open(OptionsFor(scratch.Path(), Durability::kPower), &error);
    if (session == nullptr || !recording.LedgerAt(end).Check(*session).empty()) ++losses;
  }
  EXPECT_GT(losses, 0);
}

}  // namespace
}  // namespace ox::testing

// The power is cut after every single change that a history makes to the disk, and what was not
// synchronised is lost, torn or reordered. What Commit reported at durability "power" is there
// exactly, nothing uncommitted is served, no file stays that belongs to nobody, and a second start
// changes nothing. The start that puts things in order is cut in the same way.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "session/durable_io.h"
#include "session/session_names.h"
#include "tests/support/crash_states.h"
#include "tests/support/ledger.h"
#include "tests/support/system_calls.h"
#include <oxfilecache/format.h>

namespace ox::testing {
namespace {

bool IsLongRun() {
  return std::getenv("OX_PROVE") != nullptr;
}

SessionOptions RareTouches(const std::string& directory, Durability durability) {
  SessionOptions options = OptionsFor(directory, durability);
  options.touchInterval = std::chrono::hours(1);
  return options;
}

// A history on the disk, with what the cache may hold at each point of its journal.
class Recording {
 public:
  using History = void (*)(CacheSession& session, Ledger& ledger);

  explicit Recording(const Limits& limits) : limits_(limits) {}

  // Entries that are there before the journal begins.
  void Fill(int entries) {
    Configure(scratch_, {1000000, 100, 65536});
    const auto session = OpenSession(RareTouches(scratch_.Path(), Durability::kPower));
    for (int i = 1; i <= entries; ++i)
      Store(*session, "http://a/" + std::to_string(i), i, &ledger_);
  }

  // Where entries may be evicted, or calls fail, any may be gone.
  void Run(Durability durability, bool mayLose, History history) {
    std::unique_ptr<Journal> journal;
    {
      const FaultPause pause;
      Configure(scratch_, limits_);
      start_ = ReadImage(scratch_.Path());
      journal = std::make_unique<Journal>(scratch_.Path());
    }
    ledger_.onChange = [&] {
      if (mayLose) ledger_.AnyMayBeGone();
      ledgers_[journal->Operations().size()] = ledger_;
    };
    ledger_.onChange();
    Error error;
    const auto session = CacheSession::Open(RareTouches(scratch_.Path(), durability), &error);
    if (session != nullptr) history(*session, ledger_);
    operations_ = journal->Operations();
  }

  const Ledger& LedgerAt(std::size_t cut) const {
    return std::prev(ledgers_.upper_bound(cut))->second;
  }
  const DiskImage& Start() const { return start_; }
  const std::vector<FileOperation>& Operations() const { return operations_; }
  const Limits& CacheLimits() const { return limits_; }

 private:
  const Limits limits_;
  const ScratchDirectory scratch_;
  DiskImage start_;
  std::vector<FileOperation> operations_;
  Ledger ledger_;
  // By the number of operations that came before.
  std::map<std::size_t, Ledger> ledgers_;
};

DiskImage WithoutLock(DiskImage image) {
  image.erase("ox-session.lock");
  return image;
}

// Every file is the configuration, the lock, or one of a pair.
std::string FileOfNobody(const DiskImage& image) {
  for (const auto& [name, file] : image) {
    if (name == "file-cache.conf" || name == "ox-session.lock") continue;
    const std::string partner = format::HasMetadataSuffix(name)
                                    ? name.substr(0, name.size() - format::kMetadataSuffixLength)
                                    : name + format::kMetadataSuffix;
    if (image.count(partner) == 0) return name;
  }
  return {};
}

// Content that no start of a bare module would ever delete: it has neither metadata nor staged
// metadata that will be its own, or a session's start deletes.
std::string LostContent(const DiskImage& image) {
  for (const auto& file : image) {
    if (!internal::StagingId(file.first).empty()) return {};
  }
  for (auto file = image.begin(); file != image.end(); ++file) {
    const auto next = std::next(file);
    const bool isFollowed = next != image.end() && next->first.rfind(file->first + ".", 0) == 0;
    if (format::IsContentName(file->first) && !isFollowed) return file->first;
  }
  return {};
}

struct Counts {
  int operations = 0;
  int states = 0;
  int statesOfRecovery = 0;
};

void CheckState(const DiskImage& image, const Recording& recording, std::size_t cut,
                std::vector<FileOperation>* recovery) {
  const ScratchDirectory scratch;
  WriteImage(image, scratch.Path());
  DiskImage afterFirst;
  for (const bool isFirst : {true, false}) {
    Error error;
    std::unique_ptr<Journal> journal;
    if (isFirst && recovery != nullptr) journal = std::make_unique<Journal>(scratch.Path());
    auto session = CacheSession::Open(RareTouches(scratch.Path(), Durability::kPower), &error);
    if (journal != nullptr) *recovery = journal->Operations();
    journal.reset();
    ASSERT_NE(nullptr, session) << error.Message();
    ASSERT_EQ("", recording.LedgerAt(cut).Check(*session));
    ASSERT_EQ(DiskUse(scratch.Path()), session->Statistics().bytes);
    ASSERT_GE(recording.CacheLimits().size, session->Statistics().bytes);
    session.reset();
    const DiskImage after = WithoutLock(ReadImage(scratch.Path()));
    ASSERT_EQ("", FileOfNobody(after));
    ASSERT_TRUE(isFirst || after == afterFirst) << "the second start changed something";
    afterFirst = after;
  }
}

// Also cuts the start that follows the cut, for one in `stride` states. With `most` 1 the process
// is killed and the power stays.
void CutEverywhere(const Recording& recording, std::size_t most, int stride, Counts* counts) {
  std::mt19937 random(1);
  const CrashStates states(recording.Start(), recording.Operations(), hasOrderedJournal);
  for (std::size_t cut = 0; cut <= recording.Operations().size(); ++cut) {
    for (const DiskImage& image : states.After(cut, most, &random)) {
      const bool goesOn = ++counts->states % stride == 0;
      std::vector<FileOperation> recovery;
      CheckState(image, recording, cut, goesOn ? &recovery : nullptr);
      ASSERT_FALSE(::testing::Test::HasFatalFailure()) << "cut " << cut;
      ASSERT_TRUE(most > 1 || LostContent(image).empty()) << "cut " << cut;
      const CrashStates again(image, recovery, hasOrderedJournal);
      for (std::size_t second = 1; second < recovery.size(); ++second) {
        for (const DiskImage& worse : again.After(second, (most + 3) / 4, &random)) {
          ++counts->statesOfRecovery;
          CheckState(worse, recording, cut, nullptr);
          ASSERT_FALSE(::testing::Test::HasFatalFailure()) << "cuts " << cut << ", " << second;
        }
      }
    }
  }
  counts->operations += static_cast<int>(recording.Operations().size());
}

void Print(const Counts& counts) {
  std::printf("%d operations, %d states of the disk, %d more of cuts in the start after\n",
              counts.operations, counts.states, counts.statesOfRecovery);
}

void StoreReplaceRemove(CacheSession& session, Ledger& ledger) {
  Error error;
  Store(session, "http://a/1", 1, &ledger);
  Store(session, "http://a/2", 1, &ledger);
  Store(session, "http://a/1", 2, &ledger);
  Write(session, "http://a/1", "never committed", &error);
  ledger.MayBeGone("http://a/2");  // a removal is not synchronised
  static_cast<void>(session.Remove("http://a/2"));
  Store(session, "http://a/2", 3, &ledger);
  Store(session, "http://a/3", 1, &ledger);
  Renew(session, "http://a/3", &ledger);
  Store(session, "http://a/1", 4, &ledger);
}

// Renews what a power cut may have left half in place.
void ReplaceAndRenew(CacheSession& session, Ledger& ledger) {
  Store(session, "http://a/1", 1, &ledger);
  Store(session, "http://a/1", 2, &ledger);
  Renew(session, "http://a/1", &ledger);
  Store(session, "http://a/1", 3, &ledger);
  ledger.MayBeGone("http://a/1");
  static_cast<void>(session.Remove("http://a/1"));
  Store(session, "http://a/1", 4, &ledger);
}

// What was kept of a writer lies beside the commit file of the same content.
void KeepAndReplace(CacheSession& session, Ledger& ledger) {
  const std::string url = "http://a/1";
  for (int version = 1; version <= 2; ++version) {
    Error error;
    const auto writer = Write(session, url, ContentOf(url, version), &error);
    ASSERT_FALSE(writer->KeepAs("http://a/part", "m"));
    ledger.Begin(url, version);
    ASSERT_FALSE(writer->Commit(MetadataOf(url, version)));
    ledger.Committed(url, version);
  }
}

// On a full disk the renewed metadata has no seal, which would tell what content it belongs to.
void ReplaceAndRenewWithoutSeal(CacheSession& session, Ledger& ledger) {
  Store(session, "http://a/1", 1, &ledger);
  Store(session, "http://a/1", 2, &ledger);
  refusal = {{"fsetxattr"}, ENOSPC};
  Renew(session, "http://a/1", &ledger);
  refusal = {};
}

// A replacement that cannot be finished is given up for the next one.
void GiveUpAndStore(CacheSession& session, Ledger& ledger) {
  static std::filesystem::path directory;
  static Refusal before;
  before = refusal;
  Error error;
  Store(session, "http://a/1", 1, &ledger);
  directory = session.Fetch("http://a/1", &error)->path;
  directory = directory.parent_path();
  internal::SetFileOperationHook([] {
    const FaultPause pause;
    const auto staging = Look(directory).staging;
    const bool isContentPlaced =
        staging.size() == 1 && staging[0].find(".commit") != std::string::npos;
    if (isContentPlaced) refusal = {{"fsetxattr", "rename"}, EOPNOTSUPP};
  });
  ledger.MayBeGone("http://a/1");
  EXPECT_FALSE(Store(session, "http://a/1", 2, &ledger));
  internal::SetFileOperationHook(nullptr);
  refusal = before;
  EXPECT_TRUE(Store(session, "http://a/1", 3, &ledger));
}

// Two writers that overlap, and entries that must go.
void CrowdedHistory(CacheSession& session, Ledger& ledger) {
  Error error;
  const auto other = Write(session, "http://b/other", "half of it", &error);
  for (int i = 1; i <= 6; ++i)
    Store(session, "http://b/" + std::to_string(i % 4), i, &ledger);
  Renew(session, "http://b/3", &ledger);
  static_cast<void>(session.Trim(nullptr));
  Store(session, "http://b/0", 9, &ledger);
}

void CommitAs(CacheSession& session, const std::string& url, int version, Ledger& ledger) {
  Error error;
  const auto writer = Write(session, "http://c/part", ContentOf(url, version), &error);
  ledger.Begin(url, version);
  if (!writer->CommitAs(url, MetadataOf(url, version))) ledger.Committed(url, version);
}

// Producers, other URLs, new limits, and many entries that go at once.
void DeleteMany(CacheSession& session, Ledger& ledger) {
  const auto mayBeGone = [&ledger](int first, int last) {
    for (int i = first; i <= last; ++i)
      ledger.MayBeGone("http://c/" + std::to_string(i));
  };
  Produce(session, "http://c/1", 1, &ledger);
  Store(session, "http://c/2", 2, &ledger);
  CommitAs(session, "http://c/2", 3, ledger);
  CommitAs(session, "http://c/3", 4, ledger);
  RemoveByUrl(session, "http://c/1", &ledger);
  ledger.Begin("http://c/1", 1);  // a removal is not synchronised
  session::CacheLimits limits = session.Limits();
  limits.maxEntries = 4;
  EXPECT_FALSE(session.SetLimits(limits));
  Store(session, "http://c/4", 5, &ledger);
  session::TrimTarget target;
  target.entries = 2;
  std::uint64_t deleted = 0;
  ledger.MayBeGone("http://c/2");  // used longest ago
  EXPECT_FALSE(session.TrimTo(target, &deleted));
  EXPECT_EQ(deleted, 1U);
  mayBeGone(2, 4);
  EXPECT_FALSE(session.Clear(&deleted));
  EXPECT_EQ(deleted, 2U);
  Store(session, "http://c/5", 6, &ledger);
}

// Replaces what was used longest ago of three, then adds one more: nothing goes but what must.
void FullCache(CacheSession& session, Ledger& ledger) {
  Store(session, "http://a/1", 4, &ledger);
  ledger.MayBeGone("http://a/2");
  Store(session, "http://a/4", 4, &ledger);
}

constexpr Limits kWide{1000000, 9, 65536};
constexpr Limits kNarrow{6000, 3, 65536};
constexpr Limits kThree{1000000, 3, 65536};

void CutAllHistories() {
  const struct {
    Limits limits;
    bool mayLose;
    bool hasSeals;
    Recording::History history;
  } cases[] = {{kWide, false, true, &StoreReplaceRemove},
               {kWide, false, false, &StoreReplaceRemove},
               {kWide, false, true, &ReplaceAndRenew},
               {kWide, false, true, &KeepAndReplace},
               {kWide, false, true, &ReplaceAndRenewWithoutSeal},
               {kWide, false, true, &DeleteMany},
               {kWide, false, false, &GiveUpAndStore},
               {kNarrow, true, true, &CrowdedHistory}};
  for (const auto& test : cases) {
    Recording recording(test.limits);
    if (!test.hasSeals) refusal = {{"fsetxattr"}, EOPNOTSUPP};
    recording.Run(Durability::kPower, test.mayLose, test.history);
    refusal = {};
    Counts counts;
    CutEverywhere(recording, IsLongRun() ? 128 : 12, IsLongRun() ? 10 : 60, &counts);
    Print(counts);
  }
}

TEST(PowerLoss, AfterEveryOperation) {
  CutAllHistories();
}

class OrderedJournal {
 public:
  OrderedJournal() { hasOrderedJournal = true; }
  ~OrderedJournal() { hasOrderedJournal = false; }
  OrderedJournal(const OrderedJournal&) = delete;
  OrderedJournal& operator=(const OrderedJournal&) = delete;
};

TEST(PowerLoss, AfterEveryOperationWithAnOrderedJournal) {
  const OrderedJournal ordered;
  CutAllHistories();
}

// A call fails, and then the power does. What was done to undo a failed commit may be what is lost.
TEST(PowerLoss, AfterAFailedCall) {
  std::mt19937 random(1);
  int checked = 0;
  std::uint64_t call = 1;
  for (bool isReached = true; isReached; ++call) {
    Recording recording(kWide);
    callFaults.Arm(call, FaultDriver::Mode::kOnce);
    recording.Run(Durability::kPower, true, &StoreReplaceRemove);
    isReached = callFaults.WasReached();
    callFaults.Disarm();
    const CrashStates states(recording.Start(), recording.Operations());
    const std::size_t end = recording.Operations().size();
    for (std::size_t cut = random() % 8; cut <= end; cut += IsLongRun() ? 4 : 24) {
      for (const DiskImage& image : states.After(cut, IsLongRun() ? 16 : 4, &random)) {
        CheckState(image, recording, cut, nullptr);
        ++checked;
        ASSERT_FALSE(HasFatalFailure()) << "call " << call << ", cut " << cut;
      }
    }
  }
  std::printf("%d failed calls, %d states of the disk\n", static_cast<int>(call - 2), checked);
}

// Any point where a kill strikes leaves the old or the new entry, and so does any point of the
// start after.
TEST(Kill, AfterEveryOperation) {
  const struct {
    Limits limits;
    int before;
    bool mayLose;
    Recording::History history;
  } cases[] = {{kWide, 0, false, &StoreReplaceRemove},
               {kWide, 0, false, &DeleteMany},
               {kNarrow, 0, true, &CrowdedHistory},
               {kThree, 3, false, &FullCache},
               {kThree, 6, true, &FullCache}};  // the start brings the cache within its limits
  Counts counts;
  for (const auto durability : {Durability::kProcess, Durability::kPower}) {
    for (const auto& test : cases) {
      Recording recording(test.limits);
      recording.Fill(test.before);
      recording.Run(durability, test.mayLose, test.history);
      CutEverywhere(recording, 1, 1, &counts);
      ASSERT_FALSE(HasFatalFailure()) << &test - cases;
    }
  }
  Print(counts);
}

// The proof itself: at a lower durability the same cuts must find losses.
TEST(PowerLoss, WouldBeNoticed) {
  Recording recording(kWide);
  recording.Run(Durability::kProcess, false, &StoreReplaceRemove);
  std::mt19937 random(1);
  const CrashStates states(recording.Start(), recording.Operations());
  const std::size_t end = recording.Operations().size();
  int losses = 0;
  for (const DiskImage& image : states.After(end, 50, &random)) {
    const ScratchDirectory scratch;
    WriteImage(image, scratch.Path());
    Error error;
    const auto session = CacheSession::Open(OptionsFor(scratch.Path()), &error);
    if (session == nullptr || !recording.LedgerAt(end).Check(*session).empty()) ++losses;
  }
  EXPECT_GT(losses, 0);
}

// A new directory is lost in a power cut with all that is in it until its parent is on the medium.
TEST(PowerLoss, ParentsOfANewDirectoryAreSynchronised) {
  for (const auto durability : {Durability::kProcess, Durability::kPower}) {
    const ScratchDirectory scratch;
    const Journal journal(scratch.Path());
    OpenSession(OptionsFor(scratch / "a/b/cache", durability));
    for (const std::string& parent : {scratch.Path(), scratch / "a", scratch / "a/b"}) {
      EXPECT_EQ(durability == Durability::kPower ? 1U : 0U,
                journal.SynchronisedDirectories().count(std::filesystem::canonical(parent)))
          << parent;
    }
  }
}

// Each synchronisation costs a slow medium its time, and each renaming a journal its room: none is
// made without need.
TEST(PowerLoss, WhatAChangeSynchronises) {
  using Kind = FileOperation::Kind;
  const struct {
    Durability durability;
    bool isOrdered;
  } runs[] = {{Durability::kNone, false},
              {Durability::kProcess, false},
              {Durability::kPower, false},
              {Durability::kPower, true}};
  for (const auto& run : runs) {
    const bool isPower = run.durability == Durability::kPower;
    hasOrderedJournal = run.isOrdered;
    const CacheDirectory cache(kWide);
    const auto session = OpenSession(OptionsFor(cache.Path(), run.durability));
    hasOrderedJournal = false;
    ASSERT_FALSE(session->StoreWhole("first", "x", "m"));
    Error error;
    const int ofNew = isPower ? 2 : 1;
    const struct {
      const char* name;
      std::function<Error()> make;
      int files;
      int directories;
      int renamings;
    } changes[] = {
        {"new", [&] { return session->StoreWhole("a", "x", "m"); }, 2, 1, ofNew},
        {"replaced", [&] { return session->StoreWhole("a", "y", "n"); }, 2, 1,
         run.durability == Durability::kNone ? 2 : 3},
        {"kept", [&] { return Write(*session, "b", "x", &error)->KeepAs("b", "m"); }, 2, 1, 1},
        {"renewed", [&] { return session->SetMetadata("a", "o"); }, 1, 1, 1},
        {"removed", [&] { return session->Remove("a"); }, 0, 0, 0},
        {"new under a name just removed", [&] { return session->StoreWhole("a", "x", "m"); }, 2, 2,
         ofNew}};
    for (const auto& change : changes) {
      const Journal journal(cache.Path());
      EXPECT_FALSE(change.make());
      const auto& operations = journal.Operations();
      const auto count = [&](Kind kind) {
        return std::count_if(operations.begin(), operations.end(),
                             [&](const FileOperation& o) { return o.kind == kind; });
      };
      EXPECT_EQ(count(Kind::kSyncFile), isPower && !run.isOrdered ? change.files : 0)
          << change.name;
      EXPECT_EQ(count(Kind::kWriteOut), run.isOrdered ? change.files : 0) << change.name;
      EXPECT_EQ(count(Kind::kSyncDirectory), isPower ? change.directories : 0) << change.name;
      EXPECT_EQ(count(Kind::kRename), change.renamings) << change.name;
    }
  }
}

TEST(PowerLoss, WhatCannotBeWrittenOutIsSynchronisedOrNotCommitted) {
  const OrderedJournal ordered;
  for (const int failure : {ENOSYS, EIO}) {
    const CacheDirectory cache(kWide);
    const auto session = OpenSession(OptionsFor(cache.Path(), Durability::kPower));
    ASSERT_FALSE(session->StoreWhole("a", "old", "o"));
    const Journal journal(cache.Path());
    refusal = {{"sync_file_range"}, failure};
    const Error error = session->StoreWhole("a", "new", "n");
    refusal = {};
    const auto& operations = journal.Operations();
    const bool isSynchronised = std::any_of(
        operations.begin(), operations.end(),
        [](const FileOperation& o) { return o.kind == FileOperation::Kind::kSyncFile; });
    EXPECT_EQ(isSynchronised, failure == ENOSYS);
    EXPECT_EQ(error.systemError, failure == ENOSYS ? 0 : EIO);
    EXPECT_EQ(Fetch(*session, "a"), failure == ENOSYS ? "new|n" : "old|o");
  }
}

}  // namespace
}  // namespace ox::testing

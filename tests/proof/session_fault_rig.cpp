#include "tests/proof/session_fault_rig.h"

#include <algorithm>
#include <filesystem>

#include "session/crc32c.h"
#include "session/durable_io.h"
#include "session/entry_name.h"
#include "session/entry_seal.h"
#include "session/metadata_file.h"

namespace ox::testing {
namespace {

Cache* current = nullptr;

// All entries are there, and every URL can be stored at once.
void GoOn(Cache& cache) {
  ASSERT_NE(nullptr, cache.session) << cache.error.Message();
  ASSERT_EQ("", cache.ledger.Check(*cache.session));
  for (const std::string& url : {kKept, kReplaced, kRemoved, kNew, kInterrupted})
    ASSERT_TRUE(Store(*cache.session, url, 9, &cache.ledger)) << url;
  ASSERT_EQ("", cache.ledger.Check(*cache.session));
}

}  // namespace

FaultDriver changes;
std::function<void(Cache&)> beforeChange;

Cache::Cache(Durability durability) : options(OptionsFor(scratch.Path(), durability)) {
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

void Cache::LeaveBehind(int version) {
  const std::string content = scratch / internal::ContentName(kInterrupted);
  WriteWhole(scratch / "ox-0123456789abcdef-1.part", "half");
  const std::string bytes = ContentOf(kInterrupted, version);
  const std::string metadata = MetadataOf(kInterrupted, version);
  const auto seal = internal::MakeSeal(
      kInterrupted, internal::ExtendCrc32c(0, bytes.data(), bytes.size()), bytes.size(), metadata);
  WriteWhole(scratch / "ox-0123456789abcdef-2.part", bytes);
  const std::string commit = content + ".0123456789abcdef-2.commit";
  EXPECT_FALSE(
      internal::StageMetadataFile(commit, commit, metadata, 0, &seal, internal::FileSync::kNone));
  ledger.Committed(kInterrupted, version);
  // Made anew by the opening.
  std::filesystem::remove(scratch / "file-cache.conf");
  options.limits = {100000, 9, 65536, ""};
}

void Cache::Open() {
  session.reset();
  session = CacheSession::Open(options, &error);
  if (error.kind != ErrorKind::kConfiguration) return;
  // It was deleted: it is never made or read in part.
  const FaultPause pause;
  EXPECT_EQ("(missing)", ReadWhole(scratch / "file-cache.conf")) << error.Message();
}

void Cache::Replace(int version) {
  if (options.durability == Durability::kNone) ledger.MayBeGone(kReplaced);
  Store(*session, kReplaced, version, &ledger);
}

bool AllHaveSeals(const Cache& cache) {
  const internal::Survey survey = Look(cache.scratch.Path());
  return std::all_of(
      survey.entries.begin(), survey.entries.end(), [&](const internal::SurveyedEntry& entry) {
        return internal::ReadSeal(cache.scratch / std::string(entry.name) + ".ox_meta").has_value();
      });
}

void CheckAtLast(Cache& cache) {
  cache.Open();
  ASSERT_NO_FATAL_FAILURE(GoOn(cache));
  EXPECT_EQ(5U, cache.session->Statistics().entries);
  EXPECT_EQ(DiskUse(cache.scratch.Path()), cache.session->Statistics().bytes);
}

void CheckBoth(Cache& cache, bool goesOn) {
  if (goesOn && cache.session != nullptr) {
    ASSERT_NO_FATAL_FAILURE(GoOn(cache));
  }
  CheckAtLast(cache);
}

}  // namespace ox::testing

// Every call of the module to the host's file system fails in turn, once and from there on, through
// a whole history. Afterwards each committed entry whose files are intact is found with its exact
// bytes, or is absent.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

using core::cache::CacheValue;

std::string ContentOf(const std::string& url) {
  return "content of " + url;
}
std::string MetaDataOf(const std::string& url) {
  return "metadata of " + url;
}

constexpr const char* kUrls[] = {"kept", "other", "removed", "new", "evicting"};

void Prepare(CacheRig& rig) {
  ASSERT_TRUE(rig.Start());
  for (const char* url : {"kept", "other", "removed"})
    ASSERT_NE(nullptr, rig.Store(url, ContentOf(url), MetaDataOf(url)));
  rig.Stop();
}

// Every operation that works on files: start, store, find, commit again, remove, evict, abandon.
void History(CacheRig& rig) {
  if (!rig.Start()) return;
  CacheValue* value = rig.Create("new", 3, MetaDataOf("new"));
  if (value != nullptr) {
    rig.host.WriteFile(Utf8(value->GetFile()), ContentOf("new"));
    if (!rig.manager->Add(value)) rig.manager->DestroyCacheValue(value);
  }
  if (CacheValue* kept = rig.Get("kept")) {
    kept->GetSize();
    kept->GetMetaData();
  }
  if (CacheValue* removed = rig.Get("removed")) rig.manager->Remove(removed);
  rig.manager->SetMaxEntries(3);
  if (rig.Store("evicting", ContentOf("evicting"), MetaDataOf("evicting")) == nullptr) {
    rig.Create("never", 5, "never committed");
  }
  rig.Stop();
}

// With the files as they are on the disk: a pair whose metadata file is whole, or nothing.
int CheckEntries(CacheRig& rig, bool mayBeCut) {
  int absent = 0;
  for (const char* url : kUrls) {
    CacheValue* value = rig.Get(url);
    if (value == nullptr) {
      ++absent;
      continue;
    }
    EXPECT_EQ(ContentOf(url), rig.host.FindFile(Utf8(value->GetFile()))->bytes) << url;
    const std::string metaData = Utf8(value->GetMetaData());
    // A bare Add that ran out of disk, on a disk that then deletes nothing either, leaves its part.
    const bool isCut = mayBeCut && MetaDataOf(url).compare(0, metaData.size(), metaData) == 0;
    EXPECT_TRUE(isCut || metaData == MetaDataOf(url)) << url << ": " << metaData;
  }
  return absent;
}

// Longer than what the module keeps on its stack for a path.
const std::string kLongDirectory = "/" + std::string(400, 'd');

using Faults = FaultDriver RecordingHost::*;

void FailEach(Faults faults, const std::string& directory, const char* what) {
  int cases = 0;
  int without = 0;
  for (const auto mode : {FaultDriver::Mode::kOnce, FaultDriver::Mode::kFromThereOn}) {
    for (std::uint64_t k = 1;; ++k) {
      CacheRig rig("MAX_CACHE_ENTRIES=5\nCACHE_DIRECTORY=" + directory + "\n");
      Prepare(rig);
      (rig.host.*faults).Arm(k, mode);
      History(rig);
      const bool reached = (rig.host.*faults).WasReached();
      (rig.host.*faults).Disarm();
      EXPECT_TRUE(rig.host.EveryMutexIsFree()) << k;
      rig.Stop();
      EXPECT_EQ(0U, rig.host.LiveBlocks() + rig.host.LiveFiles()) << k;

      ASSERT_TRUE(rig.Start());
      const int absent = CheckEntries(rig, mode == FaultDriver::Mode::kFromThereOn);
      EXPECT_NE(nullptr, rig.Store("afterwards", "content", "meta")) << k;
      EXPECT_TRUE(rig.Has("afterwards")) << k;
      ASSERT_FALSE(::testing::Test::HasFailure()) << "call " << k;
      if (!reached) {
        EXPECT_EQ(2, absent);  // one was removed, one evicted
        break;
      }
      ++cases;
      without += absent > 2 ? 1 : 0;
    }
  }
  std::printf("%d failed %s; more entries gone than without a fault in %d cases\n", cases, what,
              without);
}

TEST(HostFaults, AtEveryCallOfEveryOperation) {
  FailEach(&RecordingHost::fileFaults, "/c", "file calls");
}

TEST(HostFaults, AtEveryAllocationWithLongPaths) {
  FailEach(&RecordingHost::memoryFaults, kLongDirectory, "allocations");
}

TEST(HostFaults, WithoutInterfaceOrMutexes) {
  FailEach(&RecordingHost::serviceFaults, "/c", "services");
}

}  // namespace
}  // namespace ox::testing

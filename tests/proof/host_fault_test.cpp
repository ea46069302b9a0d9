// Every call of the module to the host's file system, every allocation and every other service
// fails in turn, once and from there on, through a whole history. Afterwards each committed entry
// whose files are intact is found with its exact bytes, or is absent; without memory none is
// absent.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

using core::cache::CacheValue;
using Faults = FaultDriver RecordingHost::*;

std::string ContentOf(const std::string& url) {
  return "content of " + url;
}
std::string MetadataOf(const std::string& url) {
  return "metadata of " + url;
}
CacheValue* Store(CacheRig& rig, const std::string& url) {
  return rig.Store(url, ContentOf(url), MetadataOf(url));
}

// Every operation that works on files: start, store, find, remove, evict, abandon.
void History(CacheRig& rig, bool evicts) {
  if (!rig.Start()) return;
  CacheValue* value = rig.Create("new", 3, MetadataOf("new"));
  if (value != nullptr) {
    rig.host.WriteFile(Utf8(value->GetFile()), ContentOf("new"));
    if (!rig.manager->Add(value)) rig.manager->DestroyCacheValue(value);
  }
  if (CacheValue* kept = rig.Get("kept")) {
    kept->GetSize();
    kept->GetMetaData();
    if (!evicts) rig.manager->Add(kept);  // writes the metadata again: only with a sound disk
  }
  if (CacheValue* removed = rig.Get("removed")) rig.manager->Remove(removed);
  if (evicts) rig.manager->SetMaxEntries(3);
  if (Store(rig, "evicting") == nullptr) rig.Create("never", 5, "never committed");
  rig.Stop();
}

// How many entries there are. Each has its files as they are on the disk.
int CheckEntries(CacheRig& rig, bool mayBeCut) {
  int found = 0;
  for (const char* url : {"kept", "other", "removed", "new", "evicting"}) {
    CacheValue* value = rig.Get(url);
    if (value == nullptr) continue;
    ++found;
    EXPECT_EQ(ContentOf(url), rig.host.FindFile(Utf8(value->GetFile()))->bytes) << url;
    const std::string metadata = Utf8(value->GetMetaData());
    // A bare Add that ran out of disk, on a disk that then deletes nothing either, leaves its part.
    const bool isCut = mayBeCut && MetadataOf(url).compare(0, metadata.size(), metadata) == 0;
    EXPECT_TRUE(isCut || metadata == MetadataOf(url)) << url << ": " << metadata;
  }
  return found;
}

void FailEach(Faults faults, const std::string& directory, const char* what) {
  const bool isMemory = faults == &RecordingHost::memoryFaults;
  int cases = 0;
  int without = 0;
  for (const auto mode : {FaultDriver::Mode::kOnce, FaultDriver::Mode::kFromThereOn}) {
    for (std::uint64_t k = 1;; ++k) {
      CacheRig rig("MAX_CACHE_ENTRIES=5\nCACHE_DIRECTORY=" + directory + "\n");
      ASSERT_TRUE(rig.Start());
      for (const char* url : {"kept", "other", "removed"})
        ASSERT_NE(nullptr, Store(rig, url));
      rig.Stop();
      (rig.host.*faults).Arm(k, mode);
      History(rig, !isMemory);
      const bool isReached = (rig.host.*faults).WasReached();
      (rig.host.*faults).Disarm();
      EXPECT_TRUE(rig.host.EveryMutexIsFree()) << k;
      rig.Stop();
      EXPECT_EQ(0U, rig.host.LiveBlocks() + rig.host.LiveFiles()) << k;

      ASSERT_TRUE(rig.Start());
      const int found = CheckEntries(rig, mode == FaultDriver::Mode::kFromThereOn);
      EXPECT_TRUE(!isMemory || (rig.Has("kept") && rig.Has("other"))) << k;
      EXPECT_NE(nullptr, rig.Store("afterwards", "content", "meta")) << k;
      EXPECT_TRUE(rig.Has("afterwards")) << k;
      ASSERT_FALSE(::testing::Test::HasFailure()) << "call " << k;
      const int expected = isMemory ? 4 : 3;
      if (!isReached) {
        EXPECT_EQ(expected, found);
        break;
      }
      ++cases;
      without += found < expected ? 1 : 0;
    }
  }
  std::printf("%d failed %s; in %d of them fewer entries than without a fault\n", cases, what,
              without);
}

TEST(HostFaults, AtEveryCallOfEveryOperation) {
  FailEach(&RecordingHost::fileFaults, "/c", "file calls");
}

TEST(HostFaults, AtEveryAllocation) {
  FailEach(&RecordingHost::memoryFaults, "/c", "allocations");
  // Longer than what the module keeps on its stack for a path.
  FailEach(&RecordingHost::memoryFaults, "/" + std::string(400, 'd'), "allocations, long paths");
}

TEST(HostFaults, WithoutInterfaceOrMutexes) {
  FailEach(&RecordingHost::serviceFaults, "/c", "services");
}

}  // namespace
}  // namespace ox::testing

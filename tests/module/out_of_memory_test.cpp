// Every single allocation refused in turn, once and from there on, through a whole history. Nothing
// may crash, leak, keep a mutex, or lose a committed file, and the cache must work again
// afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

const std::string kMetaData(60, 'm');

void Prepare(CacheRig& rig) {
  ASSERT_TRUE(rig.Start());
  ASSERT_NE(nullptr, rig.Store("kept", "kept content", kMetaData));
  ASSERT_NE(nullptr, rig.Store("other", "other content", kMetaData));
  rig.Stop();
}

// All of it also in the other, with the same bytes.
bool IsPartOf(const std::map<std::string, std::string>& part,
              const std::map<std::string, std::string>& whole) {
  return std::includes(whole.begin(), whole.end(), part.begin(), part.end());
}

void EveryOperation(CacheRig& rig) {
  if (!rig.Start()) return;
  auto* entry = rig.Create("new", 3, kMetaData);
  if (entry != nullptr) {
    const std::string file = Utf8(entry->GetFile());
    if (!file.empty()) rig.host.WriteFile(file, "new content");
    if (!rig.manager->Add(entry)) rig.manager->DestroyCacheValue(entry);
  }
  auto* found = rig.Get("kept");
  if (found != nullptr) {
    found->GetURL();
    found->GetMetaData();
    found->GetSize();
    rig.manager->Add(found);  // a duplicate, whose metadata must survive being written again
  }
  rig.manager->SetDataDir("/some/where");
  rig.manager->GetDataDir();
  found = rig.Get("new");
  if (found != nullptr) rig.manager->Remove(found);
}

TEST(OutOfMemory, AtEveryAllocationOfEveryOperation) {
  for (const auto mode : {FaultDriver::Mode::kOnce, FaultDriver::Mode::kFromThereOn}) {
    bool isReached = true;
    for (std::uint64_t k = 1; isReached; ++k) {
      SCOPED_TRACE(k);
      CacheRig rig("MAX_CACHE_ENTRIES=9\nCACHE_DIRECTORY=/c\n");
      Prepare(rig);
      const auto committed = rig.host.Disk();
      rig.host.memoryFaults.Arm(k, mode);
      EveryOperation(rig);
      isReached = rig.host.memoryFaults.WasReached();
      rig.host.memoryFaults.Disarm();
      EXPECT_TRUE(rig.host.EveryMutexIsFree());
      EXPECT_TRUE(IsPartOf(committed, rig.host.Disk()));
      rig.Stop();
      EXPECT_EQ(0U, rig.host.LiveBlocks());
      EXPECT_TRUE(IsPartOf(committed, rig.host.Disk()));

      ASSERT_TRUE(rig.Start());
      EXPECT_TRUE(rig.Has("kept"));
      EXPECT_TRUE(rig.Has("other"));
      EXPECT_NE(nullptr, rig.Store("afterwards", "content", "meta"));
    }
  }
}

TEST(OutOfMemory, ARefusedAdmissionLeavesTheListAndTheTotal) {
  for (std::uint64_t k = 1;; ++k) {
    StartedRig rig("MAX_CACHE_ENTRIES=1\nMAX_CACHE_SIZE=1024\n");
    const OxString url("abc");
    const OxString metaData(std::string(1000, 'm').c_str());
    rig.host.memoryFaults.Arm(k, FaultDriver::Mode::kOnce);
    auto* refused = rig.manager->CreateCacheValue(url, 1, metaData);
    const bool reached = rig.host.memoryFaults.WasReached();
    rig.host.memoryFaults.Disarm();
    if (!reached) {
      EXPECT_NE(nullptr, refused);
      break;
    }
    EXPECT_EQ(nullptr, refused);
    // Would not fit if the refused one had stayed in the list or the total.
    EXPECT_NE(nullptr, rig.manager->CreateCacheValue(url, 1, metaData)) << k;
  }
}

}  // namespace
}  // namespace ox::testing

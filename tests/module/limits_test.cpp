// What random histories on the model do not show of the three limits: calls, and exact bounds.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

TEST(EntryCount, CallsOfAnEviction) {
  StartedRig rig("MAX_CACHE_ENTRIES=1\n");
  ASSERT_NE(nullptr, rig.Store("a", "content", "meta"));
  rig.host.TakeLog();
  ASSERT_NE(nullptr, rig.Create("abc", 1, "meta"));
  std::string log = rig.host.TakeLog();
  // Measured first, then the eviction inside the same lock, locking again.
  EXPECT_EQ(0U,
            log.find("Lock M\nLock E\nCreateFile\nSetPath /c/09100589C32DF40B6D69F3D7821EF727\n"));
  const auto inner = log.find("Lock M\nCreateFile\nSetPath /c/", 1);
  ASSERT_NE(std::string::npos, inner);
  EXPECT_NE(std::string::npos,
            log.find("DestroyFile\nUnlock E\nLock E\nUnlock E\nUnlock M\nUnlock M\n", inner));
}

TEST(TotalSize, AdmissionEvictsForTheBytesItAdds) {
  StartedRig rig("MAX_CACHE_ENTRIES=99\nMAX_CACHE_SIZE=1024\n");
  for (const char* url : {"a", "b", "c"})
    ASSERT_NE(nullptr, rig.Store(url, std::string(300, 'x'), "meta"));
  rig.Restart();  // now the contents count: 900
  ASSERT_NE(nullptr, rig.Create("d", 0, std::string(124, 'm')));
  EXPECT_TRUE(rig.Has("a"));
  ASSERT_NE(nullptr, rig.Create("e", 0, "m"));  // one byte more
  EXPECT_FALSE(rig.Has("b"));
  EXPECT_TRUE(rig.Has("c"));
}

TEST(EntrySize, SetterKeepsContentOfExactlyThatSize) {
  StartedRig rig;
  ASSERT_NE(nullptr, rig.Store("a", std::string(100, 'x'), "meta"));
  rig.manager->SetMaxCacheValueSize(100);
  EXPECT_TRUE(rig.Has("a"));
  rig.manager->SetMaxCacheValueSize(99);
  EXPECT_FALSE(rig.Has("a"));
}

TEST(Setters, SaturateAt32Bits) {
  if (sizeof(unsigned long) == 4) return;
  StartedRig rig;
  const unsigned long wide = (1UL << 31 << 1) + 1;
  rig.manager->SetMaxSize(wide);
  rig.manager->SetMaxEntries(wide);
  rig.manager->SetMaxCacheValueSize(wide);
  EXPECT_EQ(0xFFFFFFFFU, rig.manager->GetMaxSize());
  EXPECT_EQ(0xFFFFFFFFU, rig.manager->GetMaxEntries());
  EXPECT_EQ(0xFFFFFFFFU, rig.manager->GetMaxCacheValueSize());
}

}  // namespace
}  // namespace ox::testing

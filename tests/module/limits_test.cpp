// The three limits and what they evict.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

// The URLs among a to f that are committed, in letters; the lookups do change the order of use.
std::string Present(CacheRig& rig) {
  std::string present;
  for (const char* url : {"a", "b", "c", "d", "e", "f"}) {
    if (rig.Has(url)) present += url;
  }
  return present;
}

void StoreAll(CacheRig& rig, const std::string& urls, std::size_t contentSize = 100) {
  for (const char url : urls) {
    ASSERT_NE(nullptr, rig.Store(std::string(1, url), std::string(contentSize, url), "meta"))
        << url;
  }
}

TEST(EntryCount, EvictsTheLeastRecentlyAdmittedOrFound) {
  StartedRig rig("MAX_CACHE_ENTRIES=3\n");
  StoreAll(rig, "abc");
  EXPECT_EQ("abc", Present(rig));
  ASSERT_TRUE(rig.Has("a"));
  StoreAll(rig, "d");
  EXPECT_EQ("acd", Present(rig));
  StoreAll(rig, "ef");
  EXPECT_EQ("def", Present(rig));
}

TEST(EntryCount, PendingOnesAreNeverEvicted) {
  StartedRig rig("MAX_CACHE_ENTRIES=2\n");
  auto* pending = rig.Create("a", 1, "meta");
  StoreAll(rig, "b");
  StoreAll(rig, "c");
  EXPECT_EQ("c", Present(rig));
  ASSERT_NE(nullptr, rig.Create("d", 1, "meta"));  // evicts c
  EXPECT_EQ(nullptr, rig.Create("e", 1, "meta"));
  rig.manager->DestroyCacheValue(pending);
  EXPECT_NE(nullptr, rig.Create("e", 1, "meta"));
}

TEST(EntryCount, SetterEvictsAtOnce) {
  StartedRig rig;
  StoreAll(rig, "abcde");
  rig.manager->SetMaxEntries(5);
  EXPECT_EQ("abcde", Present(rig));
  rig.manager->SetMaxEntries(2);
  EXPECT_EQ("de", Present(rig));
  rig.manager->SetMaxEntries(0);
  EXPECT_EQ("", Present(rig));
  EXPECT_EQ(nullptr, rig.Create("f", 1, "meta"));
  EXPECT_EQ(1U, rig.host.files.size());  // the configuration
}

TEST(EntryCount, CallsOfAnEviction) {
  StartedRig rig("MAX_CACHE_ENTRIES=1\n");
  StoreAll(rig, "a");
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

TEST(TotalSize, SetterEvictsOldestFirstUntilItFits) {
  StartedRig rig("MAX_CACHE_ENTRIES=99\n");
  StoreAll(rig, "abcd", 400);
  rig.Restart();  // now the contents count: 1600
  const struct {
    unsigned long size;
    const char* present;
  } cases[] = {{1600, "abcd"}, {1599, "bcd"}, {1200, "bcd"}, {1, ""}};
  for (const auto& c : cases) {
    rig.manager->SetMaxSize(c.size);
    EXPECT_EQ(c.size, rig.manager->GetMaxSize());
    // Found in this order again, the entries keep their order of use.
    EXPECT_EQ(c.present, Present(rig)) << c.size;
    if (c.size == 1599) rig.Restart();
  }
}

TEST(TotalSize, AdmissionEvictsForTheBytesItAdds) {
  StartedRig rig("MAX_CACHE_ENTRIES=99\nMAX_CACHE_SIZE=1024\n");
  StoreAll(rig, "abc", 300);
  rig.Restart();
  EXPECT_EQ("abc", Present(rig));
  auto* exact = rig.Create("d", 0, std::string(124, 'm'));
  ASSERT_NE(nullptr, exact);
  EXPECT_EQ("abc", Present(rig));
  ASSERT_NE(nullptr, rig.Create("e", 0, "m"));  // one byte more
  EXPECT_EQ("bc", Present(rig));
}

TEST(TotalSize, PendingOnesStayAboveALimitSetBelowThem) {
  StartedRig rig;
  auto* pending = rig.Create("a", 1, std::string(50, 'm'));
  rig.manager->SetMaxSize(10);
  EXPECT_EQ(10U, rig.manager->GetMaxSize());
  EXPECT_EQ(nullptr, rig.Create("b", 1, "m"));
  EXPECT_TRUE(rig.manager->Add(pending));
}

TEST(EntrySize, SetterEvictsByContentAloneWhereverItStands) {
  StartedRig rig;
  StoreAll(rig, "a", 100);
  StoreAll(rig, "b", 50);
  StoreAll(rig, "c", 101);
  StoreAll(rig, "d", 100);
  ASSERT_NE(nullptr, rig.Create("e", 200, "meta"));  // pending: stays, although above
  rig.manager->SetMaxCacheValueSize(100);
  EXPECT_EQ("abd", Present(rig));
  EXPECT_EQ(100U, rig.manager->GetMaxCacheValueSize());
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

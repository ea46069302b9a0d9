// Names, limits, and the accounting behind them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "cache/entry_tree.h"
#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

std::string Text(std::size_t length) {
  return std::string(length, 'x');
}

TEST(Entries, TheUrlKeepsItsUtf8Form) {
  StartedRig rig;
  const OxString url("http://example/\xC3\xA4");
  rig.manager->Get(url);
  const char* utf8 = nullptr;  // the field behind the table of virtual operations
  std::memcpy(&utf8, reinterpret_cast<const char*>(&url) + sizeof(void*), sizeof utf8);
  ASSERT_NE(nullptr, utf8);
  EXPECT_STREQ("http://example/\xC3\xA4", utf8);
}

TEST(Entries, FilesAreNamedByTheDigestLowNibbleFirst) {
  StartedRig rig;
  const char* const cases[][2] = {
      {"", "4DD1C89DF8002B409E089089CE8F24E7"},
      {"abc", "09100589C32DF40B6D69F3D7821EF727"},
      {"ABC", "09F2DB2D1BFDC0F4074B5A2D53529E23"},
      {"http://example/\xC3\xA4", "E7A5D583C5EEBED534A06AE69AAFB897"},
      {"http://example/\xED\xA0\x80", "EAFB49DAE318C32C8C8BAC643A525E68"},  // hashed as U+FFFD
  };
  for (const auto& [url, name] : cases) {
    auto* entry = rig.Create(url, 1, "m");
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(std::string("/c/") + name, Utf8(entry->GetFile())) << url;
  }
  int strange = 0;
  EXPECT_FALSE(rig.manager->Remove(reinterpret_cast<core::cache::CacheValue*>(&strange)));
}

int HeightOf(const core::cache::EntryNode* node) {
  return node == nullptr ? 0 : 1 + std::max(HeightOf(node->below[0]), HeightOf(node->below[1]));
}

TEST(Entries, AreFoundInFewSteps) {
  std::mt19937 random(1);
  std::vector<core::cache::EntryNode> nodes(1000);
  core::cache::EntryTree tree;
  for (core::cache::EntryNode& node : nodes) {
    std::string path = "/var/cache/";
    for (int digit = 0; digit < 32; ++digit)
      path += "0123456789ABCDEF"[random() % 16];
    node.tag = core::cache::PathTag(path.c_str(), path.size());
    tree.Enter(&node);
  }
  EXPECT_LT(HeightOf(&nodes.front()), 30);
  EXPECT_EQ(core::cache::PathTag("/c/content", 10), core::cache::PathTag("/c/contents", 10));
}

TEST(Limits, OfOneEntry) {
  const struct {
    unsigned long declared;
    std::size_t onDisk;
    std::size_t metadata;
    bool isAdmitted;
  } cases[] = {{2001, 0, 1, false},   {2000, 0, 1, true}, {(1UL << 31 << 1) + 2001, 0, 1, false},
               {0, 0, 2001, false},   {0, 0, 2000, true}, {2000, 1990, 11, false},
               {2000, 1990, 10, true}};
  for (const auto& c : cases) {
    StartedRig rig("MAX_CACHE_ENTRIES=9\nMAX_CACHE_ENTRY_SIZE=2000\n");
    rig.host.WriteFile(kAbcPath, Text(c.onDisk));
    EXPECT_EQ(c.isAdmitted, rig.Create("abc", c.declared, Text(c.metadata)) != nullptr);
  }
}

TEST(Limits, SettersEvictOnlyWhatIsAbove) {
  using Manager = core::cache::FileCacheManager;
  const struct {
    void (Manager::*set)(const unsigned long&);
    unsigned long (Manager::*get)();
    unsigned long limit;
  } cases[] = {
      {&Manager::SetMaxSize, &Manager::GetMaxSize, 200},  // the metadata: contents do not count yet
      {&Manager::SetMaxEntries, &Manager::GetMaxEntries, 1},
      {&Manager::SetMaxCacheValueSize, &Manager::GetMaxCacheValueSize, 100},  // the content alone
  };
  for (const auto& c : cases) {
    StartedRig rig;
    ASSERT_NE(nullptr, rig.Store("a", Text(100), Text(200)));
    (rig.manager->*c.set)(c.limit);
    EXPECT_EQ(c.limit, (rig.manager->*c.get)());
    EXPECT_TRUE(rig.Has("a"));
    (rig.manager->*c.set)(c.limit - 1);
    EXPECT_FALSE(rig.Has("a"));
    if (sizeof(unsigned long) > 4) {
      (rig.manager->*c.set)((1UL << 31 << 1) + 1);
      EXPECT_EQ(0xFFFFFFFFU, (rig.manager->*c.get)());
    }
  }
}

TEST(Limits, AdmissionEvictsForTheBytesItAdds) {
  StartedRig rig("MAX_CACHE_ENTRIES=99\nMAX_CACHE_SIZE=1024\n");
  for (const char* url : {"a", "b", "c"})
    ASSERT_NE(nullptr, rig.Store(url, Text(300), "meta"));
  rig.Restart();  // now the contents count: 900
  ASSERT_NE(nullptr, rig.Create("d", 0, Text(124)));
  EXPECT_TRUE(rig.Has("a"));
  ASSERT_NE(nullptr, rig.Create("e", 0, "m"));  // one byte more
  EXPECT_FALSE(rig.Has("b"));
  EXPECT_TRUE(rig.Has("c"));
}

TEST(Accounting, AFileAbove4GiBKeepsItsLow32Bits) {
  StartedRig rig;
  auto* entry = rig.Store("abc", "content", "meta");
  rig.host.highBits = std::uint64_t{3} << 32;
  EXPECT_EQ(7U, entry->GetSize());
}

TEST(Accounting, AValueThatIsListedTwiceEndsOnceAndKeepsItsFiles) {
  StartedRig rig;
  rig.host.comparesNothingEqual = true;
  auto* entry = rig.Store("abc", "content", "meta");
  EXPECT_TRUE(rig.manager->Add(entry));
  rig.Stop();
  EXPECT_EQ(0U, rig.host.LiveBlocks());
  EXPECT_NE(nullptr, rig.host.FindFile(kAbcPath));
}

TEST(Accounting, ARemovedEntryGivesItsMemoryBack) {
  StartedRig rig;
  const auto empty = rig.host.LiveBlocks();
  auto* kept = rig.Store("kept", "content", "meta");
  const auto one = rig.host.LiveBlocks();
  for (int i = 0; i < 100; ++i)
    rig.manager->Remove(rig.Store("removed", "content", "meta"));
  EXPECT_EQ(one, rig.host.LiveBlocks());
  rig.manager->Remove(kept);
  EXPECT_EQ(empty, rig.host.LiveBlocks());
}

TEST(Accounting, ALookupWithoutMemoryFindsNoOtherEntry) {
  StartedRig rig;
  ASSERT_NE(nullptr, rig.Store("", "content", "meta"));
  const OxString url("abc");
  rig.host.memoryFaults.Arm(1, FaultDriver::Mode::kOnce);
  EXPECT_EQ(nullptr, rig.manager->Get(url));
}

TEST(Accounting, ARefusedAdmissionLeavesTheListAndTheTotal) {
  for (std::uint64_t k = 1;; ++k) {
    StartedRig rig("MAX_CACHE_ENTRIES=1\nMAX_CACHE_SIZE=1024\n");
    const OxString url("abc");
    const OxString metadata(Text(1000).c_str());
    rig.host.memoryFaults.Arm(k, FaultDriver::Mode::kOnce);
    const bool isAdmitted = rig.manager->CreateCacheValue(url, 1, metadata) != nullptr;
    EXPECT_NE(rig.host.memoryFaults.WasReached(), isAdmitted);
    if (isAdmitted) break;
    // Would not fit if the refused one had stayed in the list or the total.
    EXPECT_NE(nullptr, rig.manager->CreateCacheValue(url, 1, metadata)) << k;
  }
}

}  // namespace
}  // namespace ox::testing

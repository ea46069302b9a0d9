// The start-up scan: what it admits and what it deletes.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

constexpr std::size_t kMissing = std::string::npos;

TEST(Scan, KeepsWhatFitsAndDeletesTheRest) {
  const struct {
    const char* why;
    std::string configuration;
    struct {
      const char* name;
      std::size_t contentSize;
      const char* metadata;
    } pairs[4];
    const char* left;
  } cases[] = {
      {"no limit of entries: nothing is admitted", "", {{"A", 5, "m"}}, ""},
      {"orphaned metadata", "MAX_CACHE_ENTRIES=9", {{"A", kMissing, "m"}}, ""},
      {"empty content", "MAX_CACHE_ENTRIES=9", {{"A", 0, "m"}}, ""},
      {"empty metadata is fine", "MAX_CACHE_ENTRIES=9", {{"A", 1, ""}}, "A A.ox_meta "},
      {"the first enumerated stay",
       "MAX_CACHE_ENTRIES=2",
       {{"C", 1, "m"}, {"A", 1, "m"}, {"B", 1, "m"}},
       "C C.ox_meta A A.ox_meta "},
      {"content and metadata count for the entry limit",
       "MAX_CACHE_ENTRIES=9\nMAX_CACHE_ENTRY_SIZE=1024",
       {{"A", 1020, "meta"}, {"B", 1020, "meta!"}},
       "A A.ox_meta "},
      {"and for the total, where only contents add up",
       "MAX_CACHE_ENTRIES=9\nMAX_CACHE_SIZE=1024",
       {{"A", 1000, "metadata"}, {"B", 20, "metaX"}, {"C", 20, "meta"}, {"D", 4, ""}},
       "A A.ox_meta C C.ox_meta D D.ox_meta "},
  };
  for (const auto& c : cases) {
    CacheRig rig(c.configuration);
    for (const auto& pair : c.pairs) {
      if (pair.name == nullptr) break;
      const std::string path = std::string("/c/") + pair.name;
      if (pair.contentSize != kMissing)
        rig.host.WriteFile(path, std::string(pair.contentSize, 'x'));
      rig.host.WriteFile(path + ".ox_meta", pair.metadata);
    }
    ASSERT_TRUE(rig.Start());
    rig.host.DeleteFile("/c/file-cache.conf");
    std::string left;
    for (const auto& file : rig.host.files)
      left += file.path.substr(3) + " ";
    EXPECT_EQ(c.left, left) << c.why;
  }
}

TEST(Scan, LeavesOtherFilesAlone) {
  CacheRig rig("MAX_CACHE_ENTRIES=0\n");
  for (const char* name : {"/c/A", "/c/notes.txt", "/c/B.ox_meta.bak", "/c/C.ox_meta.ox_meta",
                           "/c/.ox_metaD", "/c/E.OX_META"}) {
    rig.host.WriteFile(name, "x");
  }
  rig.host.files.push_back({"/c/F.ox_meta", "", true});
  const auto before = rig.host.Disk();
  ASSERT_TRUE(rig.Start());
  EXPECT_EQ(before, rig.host.Disk());
}

// Backslashes become slashes, and the cut is counted in UTF-16 units: beyond ASCII it falls short
// of the suffix.
TEST(Scan, LooksForTheContentFile) {
  const std::string longest(1023 - 11, 'n');
  const std::string cases[][2] = {
      // Name without suffix, name of the content file; none where the path is too long to be one.
      {"A", "A"},
      {"a\\B", "a/B"},
      {"\xC3\xA4z", "\xC3\xA4"},
      {"\xE2\x82\xAC", ","},  // E2 00 AC
      {longest, longest},
      {longest + "n", ""},
      {std::string(5000, 'n'), ""},
  };
  for (const auto& [name, content] : cases) {
    CacheRig rig("MAX_CACHE_ENTRIES=9\nCACHE_DIRECTORY=\\c\n");
    const std::string metaPath = "\\c/" + name + ".ox_meta";
    rig.host.WriteFile("/c/" + content, "content");
    rig.host.WriteFile(metaPath, "meta");
    ASSERT_TRUE(rig.Start());
    EXPECT_NE(nullptr, rig.host.FindFile(metaPath)) << name;
    const std::string call = content.empty() ? "" : "\nSetPath /c/" + content + "\nExists";
    const auto at = rig.host.TakeLog().find("GetPath\nCreateFile" + call);
    EXPECT_EQ(content.empty(), at == std::string::npos) << name;
  }
}

TEST(Scan, TwoMetadataFilesForOneContentMakeOneEntry) {
  CacheRig rig("MAX_CACHE_ENTRIES=9\nCACHE_DIRECTORY=/c\n");
  rig.host.WriteFile("/c/a/B", "content");
  rig.host.WriteFile("/c/a\\B.ox_meta", "one");
  rig.host.files.push_back({"/c/a\\B.ox_meta", "again", false});
  ASSERT_TRUE(rig.Start());
  EXPECT_NE(nullptr, rig.host.FindFile("/c/a/B"));
  rig.manager->SetMaxEntries(0);
  EXPECT_EQ(nullptr, rig.host.FindFile("/c/a/B"));
}

// 32 bits wide: content and metadata together wrap, so that the pair passes the limits; the
// entry is then refused by its declared size, and nothing is deleted.
TEST(Scan, SizesThatWrapAreLeftAlone) {
  CacheRig rig("MAX_CACHE_ENTRIES=9\n");
  rig.LeavePair(kAbcPath, "content", "meta");
  rig.host.highBits = 0x80000000;  // both files look like 2 GiB and a little
  ASSERT_TRUE(rig.Start());
  EXPECT_NE(nullptr, rig.host.FindFile(kAbcPath));
}

TEST(Scan, WithoutAFileObjectThereIsNoManagerAndNothingIsDeleted) {
  // The calls that make the objects of the configuration, the directory, and the content file,
  // which is measured once more when it is admitted.
  for (const unsigned call : {2U, 7U, 10U, 15U}) {
    CacheRig rig("MAX_CACHE_ENTRIES=1\n");
    rig.LeavePair(kAbcPath, "content", "meta");
    const auto before = rig.host.Disk();
    rig.host.fileFaults.Arm(call, FaultDriver::Mode::kOnce);
    EXPECT_FALSE(rig.Start()) << call;
    EXPECT_EQ(before, rig.host.Disk());
    EXPECT_TRUE(rig.Start());
    EXPECT_TRUE(rig.Has("abc"));
  }
}

// The second pair fits only if the first one is not counted, and then the third does not.
TEST(Scan, AStartThatFailsDeletesNoMoreThanAWholeOne) {
  for (const bool isMemory : {false, true}) {
    bool isReached = true;
    for (unsigned call = 1; isReached; ++call) {
      CacheRig rig("MAX_CACHE_ENTRIES=9\nMAX_CACHE_SIZE=1024\n");
      FaultDriver& faults = isMemory ? rig.host.memoryFaults : rig.host.fileFaults;
      for (const auto& [name, bytes] :
           {std::pair("A", 100), std::pair("B", 1000), std::pair("C", 100)})
        rig.LeavePair(std::string("/c/") + name, std::string(bytes, 'x'), "m");
      faults.Arm(call, FaultDriver::Mode::kOnce);
      const bool isStarted = rig.Start();
      isReached = faults.WasReached();
      faults.Disarm();
      EXPECT_FALSE(isStarted && isReached && isMemory) << call;
      if (isStarted) continue;  // a file that cannot be opened or measured ends no start
      const auto disk = rig.host.Disk();
      for (const char* kept : {"/c/A", "/c/A.ox_meta", "/c/C", "/c/C.ox_meta"})
        EXPECT_EQ(disk.count(kept), 1U)
            << kept << (isMemory ? ", request " : ", file object ") << call;
    }
  }
}

}  // namespace
}  // namespace ox::testing

// The start-up scan: what it admits, what it deletes, and in which calls.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

const std::string kPath = kAbcPath;
const std::string kMeta = kPath + ".ox_meta";

struct Pair {
  std::string path;
  std::size_t contentSize;  // npos: no content file
  std::string metaData;
};

constexpr std::size_t kMissing = std::string::npos;

std::string FilesAfterStart(const std::string& configuration, const std::vector<Pair>& pairs) {
  CacheRig rig(configuration);
  for (const Pair& pair : pairs) {
    if (pair.contentSize != kMissing)
      rig.host.WriteFile(pair.path, std::string(pair.contentSize, 'x'));
    rig.host.WriteFile(pair.path + ".ox_meta", pair.metaData);
  }
  EXPECT_TRUE(rig.Start());
  std::string left;
  for (const auto& file : rig.host.files) {
    if (file.path != "/c/file-cache.conf") left += file.path.substr(3) + " ";
  }
  return left;
}

TEST(Scan, KeepsWhatFitsAndDeletesTheRest) {
  const struct {
    const char* why;
    std::string configuration;
    std::vector<Pair> pairs;
    const char* left;
  } cases[] = {
      {"no limit of entries: nothing is admitted", "", {{"/c/A", 5, "m"}}, ""},
      {"orphaned metadata", "MAX_CACHE_ENTRIES=9", {{"/c/A", kMissing, "m"}}, ""},
      {"empty content", "MAX_CACHE_ENTRIES=9", {{"/c/A", 0, "m"}}, ""},
      {"empty metadata is fine", "MAX_CACHE_ENTRIES=9", {{"/c/A", 1, ""}}, "A A.ox_meta "},
      {"the first enumerated stay",
       "MAX_CACHE_ENTRIES=2",
       {{"/c/C", 1, "m"}, {"/c/A", 1, "m"}, {"/c/B", 1, "m"}},
       "C C.ox_meta A A.ox_meta "},
      {"content and metadata count for the entry limit",
       "MAX_CACHE_ENTRIES=9\nMAX_CACHE_ENTRY_SIZE=1024",
       {{"/c/A", 1020, "meta"}, {"/c/B", 1020, "meta!"}},
       "A A.ox_meta "},
      {"and for the total, where only contents add up",
       "MAX_CACHE_ENTRIES=9\nMAX_CACHE_SIZE=1024",
       {{"/c/A", 1000, "metadata"}, {"/c/B", 20, "metaX"}, {"/c/C", 20, "meta"}, {"/c/D", 4, ""}},
       "A A.ox_meta C C.ox_meta D D.ox_meta "},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.left, FilesAfterStart(c.configuration, c.pairs)) << c.why;
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

TEST(Scan, CallsOfEachOutcome) {
  const std::string look = "GetPath\nCreateFile\nSetPath " + kPath + "\nExists\n";
  const std::string sizes = "GetSize " + kPath + "\nGetSize " + kMeta + "\n";
  const struct {
    std::size_t contentSize;
    std::string calls;
  } cases[] = {
      {kMissing, look + "Delete " + kMeta + "\nDestroyFile\n"},
      {0, look + sizes + "Delete " + kPath + "\nDelete " + kMeta + "\nDestroyFile\n"},
      {5, look + sizes + "Lock E\nCreateFile\nSetPath " + kPath + "\nGetSize " + kPath +
              "\nDestroyFile\nUnlock E\nLock E\nUnlock E\nDestroyFile\n"},
  };
  for (const auto& c : cases) {
    CacheRig rig("MAX_CACHE_ENTRIES=9\n");
    rig.host.WriteFile(kMeta, "meta");
    if (c.contentSize != kMissing) rig.host.WriteFile(kPath, std::string(c.contentSize, 'x'));
    ASSERT_TRUE(rig.Start());
    const std::string log = rig.host.TakeLog();
    // The configuration is enumerated first and the content file last; both are passed over.
    const std::string head = "EnumerateDirectory /c\nGetPath\n";
    const std::string tail = c.contentSize != kMissing ? "GetPath\n" : "";
    EXPECT_EQ(head + c.calls + tail + "DestroyFile\nUnlock F\n", log.substr(log.find(head)));
  }
}

// The cut is counted in UTF-16 units, so beyond ASCII it falls short of the suffix's start: the
// content looked for does not exist, and the metadata goes as an orphan.
TEST(Scan, NamesBeyondAsciiAreCutShort) {
  CacheRig rig("MAX_CACHE_ENTRIES=9\n");
  rig.LeavePair(
      "/c/\xC3\xA4"
      "B",
      "content", "meta");
  ASSERT_TRUE(rig.Start());
  EXPECT_NE(nullptr, rig.host.FindFile("/c/\xC3\xA4"
                                       "B"));
  EXPECT_EQ(nullptr, rig.host.FindFile("/c/\xC3\xA4"
                                       "B.ox_meta"));
}

// A sequence that the cut splits goes on behind it: E2 00 AC is a comma.
TEST(Scan, ANameCutInsideASequence) {
  CacheRig rig("MAX_CACHE_ENTRIES=9\n");
  rig.host.WriteFile("/c/\xE2\x82\xAC.ox_meta", "meta");
  rig.host.WriteFile("/c/,", "content");
  ASSERT_TRUE(rig.Start());
  EXPECT_NE(nullptr, rig.host.FindFile("/c/\xE2\x82\xAC.ox_meta"));
}

TEST(Scan, BackslashesBecomeSlashes) {
  CacheRig rig("MAX_CACHE_ENTRIES=9\nCACHE_DIRECTORY=/c\\d\n");
  rig.host.WriteFile("/c\\d/A.ox_meta", "meta");
  rig.host.WriteFile("/c/d/A", "content");
  ASSERT_TRUE(rig.Start());
  EXPECT_NE(nullptr, rig.host.FindFile("/c\\d/A.ox_meta"));
  EXPECT_NE(std::string::npos, rig.host.TakeLog().find("SetPath /c/d/A\n"));
}

TEST(Scan, PathsThatDoNotFitAreSkipped) {
  const std::string suffix = ".ox_meta";
  for (const std::size_t length : {1023U, 1024U, 5000U}) {
    const std::string metaPath = "/c/" + std::string(length - 3 - suffix.size(), 'n') + suffix;
    CacheRig rig("MAX_CACHE_ENTRIES=0\n");
    rig.host.WriteFile(metaPath, "meta");  // an orphan, deleted when it is looked at
    ASSERT_TRUE(rig.Start());
    const bool isSkipped = rig.host.TakeLog().find("GetPath\nCreateFile") == std::string::npos;
    EXPECT_EQ(length > 1023, isSkipped) << length;
    EXPECT_EQ(isSkipped, rig.host.FindFile(metaPath) != nullptr) << length;
  }
}

TEST(Scan, TwoMetadataFilesForOneContentMakeOneEntry) {
  CacheRig rig("MAX_CACHE_ENTRIES=9\nCACHE_DIRECTORY=/c\n");
  rig.host.WriteFile("/c/a/B", "content");
  rig.host.WriteFile("/c/a\\B.ox_meta", "one");
  rig.host.WriteFile("/c/a/B.ox_meta", "two");
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
  rig.LeavePair(kPath, "content", "meta");
  rig.host.highBits = 0x80000000;  // both files look like 2 GiB and a little
  ASSERT_TRUE(rig.Start());
  EXPECT_NE(nullptr, rig.host.FindFile(kPath));
}

TEST(Scan, WithoutAFileObjectThereIsNoManagerAndNothingIsDeleted) {
  // The calls that make the objects of the configuration, the directory, and the content file,
  // which is measured once more when it is admitted.
  for (const unsigned call : {2U, 7U, 10U, 15U}) {
    CacheRig rig("MAX_CACHE_ENTRIES=1\n");
    rig.LeavePair(kPath, "content", "meta");
    const auto before = rig.host.Disk();
    rig.host.fileFaults.Arm(call, FaultDriver::Mode::kOnce);
    EXPECT_FALSE(rig.Start()) << call;
    EXPECT_EQ(before, rig.host.Disk());
    EXPECT_TRUE(rig.Start());
    EXPECT_TRUE(rig.Has("abc"));
  }
}

}  // namespace
}  // namespace ox::testing

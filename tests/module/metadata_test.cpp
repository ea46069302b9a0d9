// The metadata file: what is written, what is read back, in which calls.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

const std::string kMeta = std::string(kAbcPath) + ".ox_meta";

TEST(MetaData, IsWrittenAsManyBytesAsItHasUnits) {
  const struct {
    const char* text;
    std::string file;
    std::string readBack;
  } cases[] = {
      {"abc", "abc", "abc"},
      {"\xC3\xA9", "\xC3", "\xE3\x81\x80"},  // the lost tail decodes as a 0 byte: (C3 << 6) - 3080
      {"a\xC3\xA9z", "a\xC3\xA9", "a\xC3\xA9"},
      {"\xF0\x9F\x98\x80", "\xF0\x9F", ""},
  };
  for (const auto& c : cases) {
    StartedRig rig;
    ASSERT_NE(nullptr, rig.Store("abc", "content", c.text));
    EXPECT_EQ(c.file, rig.host.FindFile(kMeta)->bytes);
    auto* entry = rig.Get("abc");
    ASSERT_NE(nullptr, entry);
    if (c.file == c.readBack) {
      EXPECT_EQ(c.readBack, Utf8(entry->GetMetaData()));
    } else {
      EXPECT_NE(c.text, Utf8(entry->GetMetaData()));
    }
  }
}

TEST(MetaData, ReadsWhatTheFileHolds) {
  const struct {
    std::string file;
    std::string text;
  } cases[] = {
      {"abc", "abc"},
      {"", ""},
      {std::string("ab\0cd", 5), "ab"},
      {std::string("\0ab", 3), ""},
      {std::string(2000, 'x'), std::string(1024, 'x')},
      {std::string(1024, 'y'), std::string(1024, 'y')},
      {"\xA9", "\xC2\xA9"},
      // A sequence goes on behind the NUL as far as the file was read, then in zeros.
      {std::string("\xE2\0\xAC", 3), ","},
      {"\xE2", "\xEF\xBF\xBD"},
      {std::string(1023, 'x') + "\xE2\x82\xAC", std::string(1023, 'x') + "\xEF\xBF\xBD"},
  };
  CacheRig rig;
  rig.LeavePair(kAbcPath, "content", "");
  ASSERT_TRUE(rig.Start());
  for (const auto& c : cases) {
    rig.host.WriteFile(kMeta, c.file);
    auto* entry = rig.Get("abc");
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(c.text, Utf8(entry->GetMetaData()));
  }
}

// The low 32 bits count, and above 1024 they count as nothing.
TEST(MetaData, AReadThatClaimsTooMuchHasReadNothing) {
  StartedRig rig;
  auto* entry = rig.Store("abc", "content", std::string(1024, 'y'));
  const std::pair<std::uint64_t, std::size_t> cases[] = {
      {1024, 1024}, {1025, 0}, {0xFFFFFFFF, 0}, {(std::uint64_t{1} << 32) + 9, 9}};
  for (const auto& [claimed, length] : cases) {
    rig.host.claimedRead = claimed;
    rig.Get("abc");
    EXPECT_EQ(std::string(length, 'y'), Utf8(entry->GetMetaData()));
  }
}

TEST(MetaData, CommitIsOneFileInOneOrder) {
  StartedRig rig;
  auto* entry = rig.Create("abc", 3, "meta");
  rig.host.TakeLog();
  ASSERT_TRUE(rig.manager->Add(entry));
  EXPECT_EQ(
      "Lock M\nCreateFile\nSetPath " + kMeta + "\nOpen 53\nWrite 4\nClose\nDestroyFile\nUnlock M\n",
      rig.host.TakeLog());
}

TEST(MetaData, AFailedCommitLeavesTheEntryPending) {
  const struct {
    std::uint64_t failing;  // call on files, counted from CreateFile
    const char* calls;
  } cases[] = {
      {1, "CreateFile\nDestroyFile null\n"},
      {3, "CreateFile\nSetPath /M\nOpen 53\nDestroyFile\n"},
      {4, "CreateFile\nSetPath /M\nOpen 53\nWrite 4\nClose\nDestroyFile\n"},
  };
  for (const auto& c : cases) {
    StartedRig rig;
    auto* entry = rig.Create("abc", 3, "meta");
    rig.host.TakeLog();
    rig.host.fileFaults.Arm(c.failing, FaultDriver::Mode::kOnce);
    EXPECT_FALSE(rig.manager->Add(entry));
    rig.host.fileFaults.Disarm();
    std::string expected = "Lock M\n" + std::string(c.calls) + "Unlock M\n";
    const auto path = expected.find("/M");
    if (path != std::string::npos) expected.replace(path, 2, kMeta);
    EXPECT_EQ(expected, rig.host.TakeLog());
    EXPECT_FALSE(rig.Has("abc"));
    EXPECT_TRUE(rig.manager->Add(entry));
    EXPECT_TRUE(rig.Has("abc"));
  }
}

TEST(MetaData, AnEntryWithoutAnyCannotBeCommitted) {
  StartedRig rig;
  auto* entry = rig.Create("abc", 3, "");
  ASSERT_NE(nullptr, entry);
  rig.host.TakeLog();
  EXPECT_FALSE(rig.manager->Add(entry));
  EXPECT_EQ("Lock M\nUnlock M\n", rig.host.TakeLog());
  EXPECT_FALSE(rig.Has("abc"));
}

// A refresh that finds nothing empties the text but not its buffer, and the buffer decides whether
// there is anything to write.
TEST(MetaData, LostMetaDataIsCommittedAgainAsAnEmptyFile) {
  StartedRig rig;
  auto* entry = rig.Store("abc", "content", "meta");
  rig.host.DeleteFile(kMeta);
  ASSERT_EQ(entry, rig.Get("abc"));
  EXPECT_EQ("", Utf8(entry->GetMetaData()));
  EXPECT_FALSE(rig.manager->Add(entry));  // written, then found to be listed already
  ASSERT_NE(nullptr, rig.host.FindFile(kMeta));
  EXPECT_EQ("", rig.host.FindFile(kMeta)->bytes);
}

TEST(MetaData, ARefreshStopsWhereItFails) {
  StartedRig rig;
  auto* entry = rig.Store("abc", "content", "meta");
  const std::string hit =
      "CreateFile\nSetPath " + kMeta + "\nExists\nOpen 2\nRead 1024\nDestroyFile\n";
  const struct {
    std::uint64_t failing;
    std::string calls;
  } cases[] = {
      {99, hit},
      {1, "CreateFile\nDestroyFile null\n"},
      {3, "CreateFile\nSetPath " + kMeta + "\nExists\nDestroyFile\n"},
      {4, "CreateFile\nSetPath " + kMeta + "\nExists\nOpen 2\nDestroyFile\n"},
      {5, hit},
  };
  for (const auto& c : cases) {
    rig.host.fileFaults.Arm(c.failing, FaultDriver::Mode::kOnce);
    rig.host.TakeLog();
    EXPECT_EQ(entry, rig.Get("abc"));
    EXPECT_EQ("Lock M\nLock E\n" + c.calls + "Unlock E\nUnlock M\n", rig.host.TakeLog());
    EXPECT_EQ(c.failing == 99 ? "meta" : "", Utf8(entry->GetMetaData()));
  }
}

}  // namespace
}  // namespace ox::testing

// The metadata file: what is written, and what is read back.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

const std::string kMeta = std::string(kAbcPath) + ".ox_meta";

TEST(MetaData, IsWrittenAsManyBytesAsItHasUnits) {
  const char* const cases[][3] = {
      // Text, file, text that is read back.
      {"abc", "abc", "abc"},
      {"\xC3\xA9", "\xC3", "@"},  // C3 00
      {"a\xC3\xA9z", "a\xC3\xA9", "a\xC3\xA9"},
      {"\xF0\x9F\x98\x80", "\xF0\x9F", "\xF0\x9C\xBE\x80"},  // F0 9F 00 00
  };
  for (const auto& [text, file, readBack] : cases) {
    StartedRig rig;
    auto* entry = rig.Store("abc", "content", text);
    EXPECT_EQ(file, rig.host.FindFile(kMeta)->bytes);
    EXPECT_EQ(entry, rig.Get("abc"));
    EXPECT_EQ(readBack, Utf8(entry->GetMetaData()));
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
  StartedRig rig;
  auto* entry = rig.Store("abc", "content", "meta");
  for (const auto& c : cases) {
    rig.host.WriteFile(kMeta, c.file);
    EXPECT_EQ(entry, rig.Get("abc"));
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

TEST(MetaData, AnEntryWithoutAnyCannotBeCommitted) {
  StartedRig rig;
  auto* entry = rig.Create("abc", 3, "");
  ASSERT_NE(nullptr, entry);
  EXPECT_FALSE(rig.manager->Add(entry));
  EXPECT_EQ(nullptr, rig.host.FindFile(kMeta));
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
  EXPECT_EQ(1U, rig.host.Disk().count(kMeta));
  EXPECT_EQ("", rig.host.Disk()[kMeta]);
}

}  // namespace
}  // namespace ox::testing

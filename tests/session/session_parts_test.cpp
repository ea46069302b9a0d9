// Parts of a session on their own, where a case is hard to bring about from outside: which texts
// and file names it takes for what, its clock, and what it knows of the disk.
#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <ctime>
#include <filesystem>
#include <functional>
#include <set>

#include "session/disk_account.h"
#include "session/journal_order.h"
#include "session/session_names.h"
#include "session/survey.h"
#include "session/use_clock.h"
#include "session/utf8.h"
#include "tests/support/scratch_directory.h"

namespace {

std::int64_t deviceTime = 0;
std::int64_t bootTime = 0;

}  // namespace

// Defined here, it stands before the C library's.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  *time = ox::internal::ToTimespec(clock == CLOCK_REALTIME ? deviceTime : bootTime);
  return 0;
}

namespace ox::internal {
namespace {

TEST(Utf8, AtTheBordersOfEachForm) {
  for (const char* good :
       {"\x01", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA4\xF0\x9F\x98\x80z"}) {
    EXPECT_TRUE(IsStrictUtf8(good)) << good;
  }
  for (const char* bad :
       {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2\x7F", "\xC2\xC0", "\xE0\x9F\xBF",
        "\xE2\x82", "\xE2\x82z", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF0\x9F\x98",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF"}) {
    EXPECT_FALSE(IsStrictUtf8(bad)) << bad;
    EXPECT_FALSE(IsStrictUtf8(std::string("\xC3\xA4") + bad)) << bad;
  }
  EXPECT_FALSE(IsStrictUtf8(std::string("\xC3\xA4\0", 3)));
}

TEST(SessionNames, OnlyWholeNamesOfItsOwnFilesCount) {
  const std::string entry = "0123456789ABCDEF0123456789ABCDEF";
  const struct {
    const char* id;
    bool isId;
  } ids[] = {{"0123456789abcdef-7", true},   {"0123456789abcdef-1234567", true},
             {"0123456789abcdef-", false},   {"0123456789abcdef", false},
             {"0123456789abcde-7", false},   {"0123456789abcdef0-7", false},
             {"0123456789abcdef.7", false},  {"0123456789ABCDEF-7", false},
             {"0123456789abcdef-7x", false}, {"", false}};
  std::string foundEntry;
  std::string foundId;
  for (const auto& [id, isId] : ids) {
    EXPECT_EQ(StagingId(StagedContentName(id)), isId ? id : "") << id;
    EXPECT_EQ(StagingId(Joined({"ox-", id, ".meta"})), isId ? id : "") << id;
    EXPECT_EQ(IsStagedConfigurationName(StagedConfigurationName(id)), isId) << id;
    EXPECT_EQ(ParseCommitFileName(CommitFileName(entry, id), &foundEntry, &foundId), isId) << id;
    if (isId) {
      EXPECT_EQ(foundEntry, entry);
      EXPECT_EQ(foundId, id);
    }
  }
  for (const char* name : {"ox-0123456789abcdef-7.tmp_", "ox_0123456789abcdef-7.part", "ox-part",
                           "ox-.part", "x-0123456789abcdef-7.part", ".part", "", "ox-"}) {
    EXPECT_EQ(StagingId(name), "") << name;
  }
  const std::string id = ".0123456789abcdef-7";
  for (const std::string& name :
       {entry + ".commit", entry + id, entry + id + ".commit2", entry + id + "commit",
        entry + "x" + id.substr(1) + ".commit", entry.substr(1) + id + ".commit",
        "0123456789abcdef0123456789abcdef" + id + ".commit", std::string(".commit"),
        std::string(23, 'A') + ".commit"}) {
    EXPECT_FALSE(ParseCommitFileName(name, &foundEntry, &foundId)) << name;
  }
}

TEST(UseClock, OnlyEverGrows) {
  constexpr std::int64_t kSecond = 1000000000;
  constexpr std::int64_t kStart = 315705600 * kSecond;  // 3 January 1980
  deviceTime = kStart + 100 * kSecond;
  bootTime = 50 * kSecond;
  UseClock clock;
  EXPECT_EQ(clock.Next(), kStart + 100 * kSecond);
  EXPECT_EQ(clock.Next(), kStart + 100 * kSecond + 1) << "both clocks stand still";
  deviceTime = kStart + 200 * kSecond;
  EXPECT_EQ(clock.Next(), kStart + 200 * kSecond);
  deviceTime = kStart + 10 * kSecond;
  EXPECT_EQ(clock.Next(), kStart + 200 * kSecond + 1) << "set back";
  bootTime += 5 * kSecond;
  EXPECT_EQ(clock.Next(), kStart + 205 * kSecond + 1) << "intervals go on";
  clock.StayAbove(kStart + 150 * kSecond);
  EXPECT_EQ(clock.Next(), kStart + 205 * kSecond + 2) << "was above already";
  bootTime += 5 * kSecond;
  clock.StayAbove(kStart + 300 * kSecond);
  bootTime += 2 * kSecond;
  EXPECT_EQ(clock.Next(), kStart + 302 * kSecond) << "counts from the time given";
  deviceTime = 0;
  EXPECT_EQ(UseClock().Next(), kStart + 1) << "no card keeps an earlier time";
}

TEST(UseClock, TimesBefore1970) {
  EXPECT_EQ(ToTimespec(-1).tv_nsec, 999999999);
  EXPECT_EQ(ToTimespec(-2000000000).tv_nsec, 0);
  for (const std::int64_t time : {-2000000000LL, -1LL, 0LL, 1234567890123LL})
    EXPECT_EQ(ToNanoseconds(ToTimespec(time)), time);
}

TEST(DiskAccount, EachChangeGivesAnotherNumber) {
  DiskAccount account{AllocationUnit(1)};
  Survey survey;
  survey.entries.push_back({"", 10, 1, 0, {}});
  const struct stat file {};
  const std::function<void()> changes[] = {
      [&] { account.Reset(survey, 0, 0); }, [&] { account.NoteCreated(1); },
      [&] { account.NoteReplaced(1); },     [&] { account.NoteContentDeletion(file, true, 0); },
      [&] { account.MarkStale(); },
  };
  std::set<std::uint64_t> numbers{account.Changes()};
  for (int round = 0; round < 2; ++round) {
    for (const auto& change : changes) {
      change();
      EXPECT_TRUE(numbers.insert(account.Changes()).second) << &change - changes;
    }
  }
}

TEST(DiskAccount, BoundsOfTheManagersTotal) {
  DiskAccount account{AllocationUnit(1)};
  Survey survey;
  survey.entries.push_back({"", 10, 1, 0, {}});
  account.Reset(survey, 0, 0);
  EXPECT_TRUE(account.StaysWithin(10, 5, 15));
  EXPECT_FALSE(account.StaysWithin(11, 5, 15));
  EXPECT_FALSE(account.StaysWithin(10, 6, 15));
}

TEST(JournalOrder, OfExt4ByWhatTheKernelTells) {
  const struct {
    const char* options;
    const char* journal;
    bool isKept;
  } cases[] = {{"rw\nbarrier\ndata=ordered\nmax_dir_size_kb=0\n", "sda1-8", true},
               {"barrier\ndata=ordered", "sda1-8", true},
               {"rw\nbarrier\ndata=ordered\n", "sda2-8", false},
               {"rw\nbarrier\ndata=ordered\n", "sda1-sdb1", false},
               {"rw\nbarrier\ndata=writeback\n", "sda1-8", false},
               {"rw\nbarrier\ndata=journal\n", "sda1-8", false},
               {"rw\nnobarrier\ndata=ordered\n", "sda1-8", false},
               {"rw\nbarrier\n", "sda1-8", false},
               {"", "sda1-8", false}};
  for (const auto& c : cases) {
    const testing::ScratchDirectory scratch;
    const Ext4Paths paths{scratch / "devices", scratch / "ext4", scratch / "jbd2"};
    std::filesystem::create_directories(paths.fileSystems + "/sda1");
    std::filesystem::create_directories(paths.journals + "/" + c.journal);
    std::filesystem::create_directory(paths.devices);
    std::filesystem::create_symlink("../../devices/sata/sda1", paths.devices + "/8:1");
    testing::WriteWhole(paths.fileSystems + "/sda1/options", c.options);
    EXPECT_EQ(c.isKept, Ext4KeepsOrder(makedev(8, 1), paths)) << c.options << c.journal;
    EXPECT_FALSE(Ext4KeepsOrder(makedev(8, 2), paths));
  }
  for (const char* release : {"5.2.0", "5.10.0-rc1+", "6.1.0-18-armmp", "10.0"})
    EXPECT_TRUE(WritesOutAll(release)) << release;
  for (const char* release : {"5.1.21", "4.19.0", "3.10", "", "x"})
    EXPECT_FALSE(WritesOutAll(release)) << release;
  EXPECT_FALSE(KeepsOrder("/proc"));
  EXPECT_FALSE(KeepsOrder("/nowhere"));
}

}  // namespace
}  // namespace ox::internal

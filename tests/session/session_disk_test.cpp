// Limits in blocks of the disk, limits given and changed by a program, and a disk that is full.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "tests/support/disk_capacity.h"
#include "tests/support/session_rig.h"

namespace ox::testing {
namespace {

using session::CacheLimits;

SessionOptions WithLimits(const ScratchDirectory& directory, CacheLimits limits) {
  SessionOptions options = OptionsFor(directory.Path());
  options.blockSize = 0;
  options.limits = std::move(limits);
  return options;
}

// What the disk gave out to all files of the cache.
std::uint64_t Allocated(const std::string& directory) {
  std::uint64_t bytes = 0;
  for (const auto& file : std::filesystem::directory_iterator(directory)) {
    const std::string name = file.path().filename();
    struct stat status {};
    lstat(file.path().c_str(), &status);
    if (name != "file-cache.conf" && name != "ox-session.lock") {
      bytes += static_cast<std::uint64_t>(status.st_blocks) * 512;
    }
  }
  return bytes;
}

std::string Url(int number) {
  return "http://host/a-name-of-a-length-that-takes-a-block-of-its-own-where-it-is-kept/" +
         std::to_string(number) + std::string(100, '.');
}

TEST(SessionDisk, TheLimitIsTheDisks) {
  const ScratchDirectory directory;
  const std::uint32_t maxSize = 1 << 20;
  auto session = OpenSession(WithLimits(directory, {maxSize, 2000, 0, ""}));
  Error error;
  for (int i = 0; i < 400; ++i) {
    ASSERT_FALSE(error = Store(*session, Url(i), std::string(300, 'x'), "m")) << error.Message();
  }
  // A replacement, a renewal and a removal are counted in the same way.
  ASSERT_FALSE(Store(*session, Url(399), std::string(9000, 'y'), "m"));
  ASSERT_FALSE(session->SetMetadata(Url(398), "n"));
  ASSERT_FALSE(session->Remove(Url(397)));
  const std::uint64_t allocated = Allocated(directory.Path());
  EXPECT_LE(allocated, maxSize);
  EXPECT_GT(allocated, maxSize * 9 / 10 - 32768);
  const std::uint64_t counted = session->Statistics().bytes;
  EXPECT_LE(allocated, counted);
  session.reset();
  EXPECT_EQ(counted, OpenSession(WithLimits(directory, {}))->Statistics().bytes);
}

TEST(SessionDisk, AnEntryAsLargeAsTheCacheStays) {
  const ScratchDirectory directory;
  const SessionOptions options = WithLimits(directory, {100000, 10, 0, ""});
  ASSERT_FALSE(Store(*OpenSession(options), "http://a", std::string(99999, 'x'), "m"));
  EXPECT_EQ(100001U, Fetch(*OpenSession(options), "http://a").size());
}

TEST(SessionDisk, LimitsAreGivenOnceAndChangedInPlace) {
  const ScratchDirectory directory;
  const SessionOptions options = WithLimits(directory, {100000, 10, 50000, ""});
  auto session = OpenSession(options);
  for (int i = 0; i < 5; ++i)
    ASSERT_FALSE(Store(*session, Url(i), "content", "m"));
  for (const CacheLimits& bad : {CacheLimits{100000, 0, 0, ""}, CacheLimits{1023, 9, 0, ""},
                                 CacheLimits{9999, 9, 99999, ""}, CacheLimits{9999, 9, 0, "/"}}) {
    EXPECT_EQ(ErrorKind::kInvalidArgument, session->SetLimits(bad).kind);
  }
  EXPECT_EQ(5U, session->Statistics().entries);
  ASSERT_FALSE(session->SetLimits({200000, 3, 0, ""}));
  EXPECT_EQ(3U, session->Statistics().entries);
  EXPECT_EQ(200000U, session->Limits().maxEntrySize);
  EXPECT_EQ("content|m", Fetch(*session, Url(4)));
  ASSERT_FALSE(Store(*session, Url(9), std::string(60000, 'x'), "m"));
  session.reset();
  // The options hold only where there is no configuration.
  session = OpenSession(options);
  EXPECT_EQ(200000U, session->Limits().maxSize);
  EXPECT_EQ(3U, session->Statistics().entries);
}

TEST(SessionDisk, AFullDiskTakesOldEntriesForNewOnes) {
  const ScratchDirectory directory;
  auto session = OpenSession(WithLimits(directory, {1 << 20, 1000, 0, ""}));
  for (int i = 0; i < 10; ++i)
    ASSERT_FALSE(Store(*session, Url(i), std::string(5000, 'x'), "m"));
  // From here on nothing is given to anyone but in place of what was deleted.
  const DiskCapacity capacity(directory.Path(), DiskUse(directory.Path()));
  EXPECT_FALSE(Store(*session, Url(10), std::string(12000, 'y'), "m"));
  EXPECT_FALSE(Store(*session, Url(9), std::string(6000, 'z'), "m"));
  EXPECT_FALSE(session->SetMetadata(Url(9), std::string(1000, 'n')));
  EXPECT_EQ(std::string(6000, 'z') + "|" + std::string(1000, 'n'), Fetch(*session, Url(9)));
  EXPECT_EQ(kNotThere, Fetch(*session, Url(0)));
  // What is larger than the disk leaves the older entry of its URL, and the next store works.
  const Error error = Store(*session, Url(9), std::string(60000, 'z'), "m");
  EXPECT_EQ(ENOSPC, error.systemError);
  EXPECT_NE(std::string::npos, error.detail.find("no entry is left to evict"));
  EXPECT_EQ(6000U + 1 + 1000, Fetch(*session, Url(9)).size());
  EXPECT_FALSE(Store(*session, Url(10), std::string(12000, 'y'), "m"));
  session.reset();
  session = OpenSession(WithLimits(directory, {}));
  EXPECT_EQ(2U, session->Statistics().entries);
}

TEST(SessionDisk, SomeOfTheDiskStaysFree) {
  const ScratchDirectory directory;
  SessionOptions options = WithLimits(directory, {1 << 20, 1000, 0, ""});
  options.minFree = 20000;
  auto session = OpenSession(options);
  for (int i = 0; i < 10; ++i)
    ASSERT_FALSE(Store(*session, Url(i), std::string(5000, 'x'), "m"));
  const DiskCapacity capacity(directory.Path(), DiskUse(directory.Path()) + 10000);
  EXPECT_FALSE(Store(*session, Url(10), std::string(5000, 'y'), "m"));
  EXPECT_GE(capacity.Free(), 20000U);
  EXPECT_EQ(5001U + 1, Fetch(*session, Url(9)).size());
  EXPECT_EQ(ENOSPC, Store(*session, Url(9), std::string(50000, 'y'), "m").systemError);
  EXPECT_EQ(5001U + 1, Fetch(*session, Url(9)).size());
}

}  // namespace
}  // namespace ox::testing

// Limits in blocks of the disk, limits given and changed by a program, and a disk that is full.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "tests/support/session_rig.h"

namespace {

// A disk on which the files of a directory take no more than that many bytes together; as large as
// it is while this is 0.
std::string diskDirectory;
std::uint64_t diskBytes = 0;
// Deleted files are still open somewhere.
bool givesNothingBack = false;

std::uint64_t FreeBytes() {
  if (givesNothingBack) return 0;
  return diskBytes - std::min(diskBytes, ox::testing::DiskUse(diskDirectory));
}

void LimitDisk(const ox::testing::ScratchDirectory& directory, std::uint64_t beyondItsUse) {
  diskDirectory = directory.Path();
  diskBytes = ox::testing::DiskUse(diskDirectory) + beyondItsUse;
}

}  // namespace

// Defined here, these stand before the C library's.
extern "C" {

ssize_t write(int fd, const void* buffer, size_t count) {
  static auto* const real = reinterpret_cast<decltype(&write)>(dlsym(RTLD_NEXT, "write"));
  if (diskBytes == 0 || count == 0) return real(fd, buffer, count);
  const auto part = static_cast<size_t>(std::min<std::uint64_t>(count, FreeBytes()));
  if (part > 0) return real(fd, buffer, part);
  errno = ENOSPC;
  return -1;
}

int statvfs(const char* path, struct statvfs* status) noexcept {
  // Programs of 32 bits call the variant for large disks.
  constexpr const char* kName = sizeof(long) == 4 ? "statvfs64" : "statvfs";
  static auto* const real =
      reinterpret_cast<int (*)(const char*, struct statvfs*)>(dlsym(RTLD_NEXT, kName));
  const int result = real(path, status);
  if (result != 0 || diskBytes == 0) return result;
  status->f_frsize = 1;
  status->f_bavail = FreeBytes();
  return 0;
}

}  // extern "C"

namespace ox::testing {
namespace {

using session::CacheLimits;

class SessionDisk : public ::testing::Test {
 protected:
  ~SessionDisk() override {
    diskBytes = 0;
    givesNothingBack = false;
  }

  const ScratchDirectory directory_;
};

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

TEST_F(SessionDisk, TheLimitIsTheDisks) {
  const std::uint32_t maxSize = 1 << 20;
  auto session = OpenSession(WithLimits(directory_, {maxSize, 2000, 0, ""}));
  Error error;
  for (int i = 0; i < 400; ++i) {
    // Some seals fit beside their metadata, some do not, and some hold a digest of the URL.
    const std::string tail = i % 50 == 0 ? std::string(5000, 'u') : "";
    const std::string url =
        i % 4 == 0 || i % 50 == 0 ? "http://host/" + std::to_string(i) + tail : Url(i);
    ASSERT_FALSE(error = Store(*session, url, std::string(300, 'x'), "m")) << error.Message();
  }
  // A replacement, a renewal and a removal are counted in the same way.
  ASSERT_FALSE(Store(*session, Url(399), std::string(9000, 'y'), "m"));
  ASSERT_FALSE(session->SetMetadata(Url(398), "n"));
  ASSERT_FALSE(session->Remove(Url(397)));
  const std::uint64_t allocated = Allocated(directory_.Path());
  EXPECT_LE(allocated, maxSize);
  EXPECT_GT(allocated, maxSize * 9 / 10 - 32768);
  const std::uint64_t counted = session->Statistics().bytes;
  EXPECT_LE(allocated, counted);
  session.reset();
  EXPECT_EQ(counted, OpenSession(WithLimits(directory_, {}))->Statistics().bytes);
}

TEST_F(SessionDisk, AnEntryAsLargeAsTheCacheStays) {
  const SessionOptions options = WithLimits(directory_, {100000, 10, 0, ""});
  ASSERT_FALSE(Store(*OpenSession(options), "http://a", std::string(99999, 'x'), "m"));
  EXPECT_EQ(100001U, Fetch(*OpenSession(options), "http://a").size());
}

TEST_F(SessionDisk, LimitsAreGivenOnceAndChangedInPlace) {
  const SessionOptions options = WithLimits(directory_, {100000, 10, 50000, ""});
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

TEST_F(SessionDisk, LimitsThatNoSessionWouldOpenAreNotWritten) {
  for (const std::string& moved :
       {std::string("/tmp/M\xC3\xBCller"), "/" + std::string(950, 'x')}) {
    const SessionOptions options = WithLimits(directory_, {100000, 10, 0, moved});
    Error error;
    EXPECT_EQ(nullptr, CacheSession::Open(options, &error));
    EXPECT_EQ(ErrorKind::kConfiguration, error.kind);
  }
  OpenSession(WithLimits(directory_, {100000, 10, 0, ""}));
}

TEST_F(SessionDisk, AFullDiskTakesOldEntriesForNewOnes) {
  auto session = OpenSession(WithLimits(directory_, {1 << 20, 1000, 0, ""}));
  for (int i = 0; i < 10; ++i)
    ASSERT_FALSE(Store(*session, Url(i), std::string(5000, 'x'), "m"));
  Error error;
  std::filesystem::remove(session->Fetch(Url(0), &error)->path);
  for (int i = 1; i < 10; ++i)
    Fetch(*session, Url(i));
  // From here on nothing is given to anyone but in place of what was deleted.
  LimitDisk(directory_, 0);
  EXPECT_FALSE(Store(*session, Url(10), std::string(12000, 'y'), "m"));
  EXPECT_FALSE(Store(*session, Url(9), std::string(6000, 'z'), "m"));
  EXPECT_FALSE(session->SetMetadata(Url(9), std::string(1000, 'n')));
  EXPECT_EQ(std::string(6000, 'z') + "|" + std::string(1000, 'n'), Fetch(*session, Url(9)));
  EXPECT_EQ(kNotThere, Fetch(*session, Url(0)));
  // What is larger than the disk leaves the older entry of its URL, and the next store works.
  error = Store(*session, Url(9), std::string(60000, 'z'), "m");
  EXPECT_EQ(ENOSPC, error.systemError);
  EXPECT_NE(std::string::npos, error.detail.find("no entry is left to evict"));
  EXPECT_EQ(6000U + 1 + 1000, Fetch(*session, Url(9)).size());
  EXPECT_FALSE(Store(*session, Url(10), std::string(12000, 'y'), "m"));
  session.reset();
  session = OpenSession(WithLimits(directory_, {}));
  EXPECT_EQ(2U, session->Statistics().entries);
}

TEST_F(SessionDisk, NotAllEntriesGoForSpaceThatNothingGives) {
  for (const std::uint64_t minFree : {0, 20000}) {
    const ScratchDirectory directory;
    SessionOptions options = WithLimits(directory, {10 << 20, 1000, 0, ""});
    options.minFree = minFree;
    auto session = OpenSession(options);
    for (int i = 0; i < 80; ++i)
      ASSERT_FALSE(Store(*session, Url(i), std::string(20000, 'x'), "m"));
    LimitDisk(directory, 0);
    givesNothingBack = true;
    const Error error = Store(*session, Url(80), std::string(10000, 'y'), "m");
    EXPECT_EQ(ENOSPC, error.systemError);
    EXPECT_NE(std::string::npos, error.detail.find("may still be open")) << error.Message();
    EXPECT_GE(session->Statistics().entries, 50U);
    givesNothingBack = false;
    EXPECT_FALSE(Store(*session, Url(80), std::string(10000, 'y'), "m"));
    diskBytes = 0;
  }
}

TEST_F(SessionDisk, SomeOfTheDiskStaysFree) {
  SessionOptions options = WithLimits(directory_, {1 << 20, 1000, 0, ""});
  options.minFree = 20000;
  auto session = OpenSession(options);
  for (int i = 0; i < 10; ++i)
    ASSERT_FALSE(Store(*session, Url(i), std::string(5000, 'x'), "m"));
  LimitDisk(directory_, 10000);
  EXPECT_FALSE(Store(*session, Url(10), std::string(5000, 'y'), "m"));
  EXPECT_GE(FreeBytes(), 20000U);
  EXPECT_EQ(5001U + 1, Fetch(*session, Url(9)).size());
  EXPECT_EQ(ENOSPC, Store(*session, Url(9), std::string(50000, 'y'), "m").systemError);
  EXPECT_EQ(5001U + 1, Fetch(*session, Url(9)).size());
}

}  // namespace
}  // namespace ox::testing

// The directories of the Linux host: made when they are missing, and held open for their files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <thread>

#include "tests/host/host_fixture.h"

namespace ox::testing {
namespace {

class DirectoryTest : public HostTest {
 protected:
  DirectoryTest() {
    fs::create_directory(directory_);
    WriteWhole(file_, "old");
  }

  const std::string directory_ = scratch_ / "cache";
  const std::string file_ = directory_ + "/file";
};

// As when somebody empties a cache with rm -r while it is in use. The same directory by two paths
// is held twice; only one of them is used to find out.
TEST_F(DirectoryTest, OneMadeAnewIsFoundByTheNextWrite) {
  BoundFile writer(fileSystem_, file_);
  BoundFile reader(fileSystem_, scratch_ / "/cache/file");
  EXPECT_EQ(3U, writer->GetSize());
  EXPECT_EQ(3U, reader->GetSize());
  fs::remove_all(directory_);
  fs::create_directory(directory_);
  EXPECT_TRUE(writer->Open(File::kOpenWrite));
  EXPECT_EQ(5U, writer->Write(5, "bytes"));
  EXPECT_EQ("bytes", ReadWhole(file_));
  EXPECT_EQ(5U, reader->GetSize());
}

// As when something is mounted over it: nothing tells, but it does not last.
TEST_F(DirectoryTest, OneThatTookItsPlaceIsFoundSoon) {
  BoundFile file(fileSystem_, file_);
  EXPECT_EQ(3U, file->GetSize());
  fs::rename(directory_, scratch_ / "moved");
  fs::create_directory(directory_);
  EXPECT_FALSE(file->Delete(0));
  EXPECT_EQ("old", ReadWhole(scratch_ / "moved/file"));
  WriteWhole(file_, "newer");
  const auto start = std::chrono::steady_clock::now();
  while (file->GetSize() != 5U) {
    ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

// More directories than are held open, each of them several times.
TEST_F(DirectoryTest, ManyGiveWayToEachOther) {
  for (int round = 0; round < 3; ++round) {
    for (int i = 1; i <= 6; ++i) {
      const std::string directory = scratch_ / std::to_string(i);
      fs::create_directory(directory);
      WriteWhole(directory + "/file", std::string(static_cast<std::size_t>(i), 'x'));
      EXPECT_EQ(static_cast<std::uint64_t>(i),
                BoundFile(fileSystem_, directory + "/file")->GetSize());
    }
  }
  EXPECT_EQ(descriptors_ + 4, OpenDescriptors());
}

TEST_F(DirectoryTest, TheDefaultOneIsMadeAndKeptByteForByte) {
  const mode_t before = umask(0027);
  OxString out;
  for (const std::string ending : {"", "/", "//"}) {
    const std::string path = scratch_ / ("parents" + ending + "/one/two" + ending);
    ASSERT_TRUE(host::PosixFileSystem(path).GetDefaultDirectory(out));
    EXPECT_EQ(path, out.UTF8());
    EXPECT_EQ(fs::perms(0700), fs::status(path).permissions());
    EXPECT_EQ(fs::perms(0750), fs::status(scratch_ / "parents/one").permissions());
    fs::remove_all(scratch_ / "parents");
  }
  umask(before);
  fs::current_path(scratch_.Path());
  EXPECT_TRUE(host::PosixFileSystem("p/one").GetDefaultDirectory(out));
  EXPECT_TRUE(fs::is_directory(scratch_ / "p/one"));
  fs::current_path("/");
  for (const std::string& bad : {std::string(), file_, file_ + "/below"}) {
    EXPECT_FALSE(host::PosixFileSystem(bad).GetDefaultDirectory(out)) << bad;
    EXPECT_TRUE(out.IsEmpty());
  }
}

}  // namespace
}  // namespace ox::testing

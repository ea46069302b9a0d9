// File objects whose directory is held open: what is beside them and what takes its place.
#include "host/held_directory.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "host/posix_file.h"
#include "tests/support/scratch_directory.h"
#include <oxfilecache/host.h>

namespace ox::testing {
namespace {

using internal::PosixFile;

using File = os::filesystem::File;

long HeldDirectories() {
  long count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    struct stat status;
    if (stat(entry.path().c_str(), &status) == 0 && S_ISDIR(status.st_mode)) ++count;
  }
  return count - 1;  // the iterator's own
}

class HeldDirectoryTest : public ::testing::Test {
 protected:
  HeldDirectoryTest() { std::filesystem::create_directory(directory_); }

  // An object that holds the directory.
  void Bind(PosixFile& file, const std::string& name) {
    file.SetPath((directory_ + "/beside").c_str());
    ASSERT_TRUE(file.SetPath((directory_ + "/" + name).c_str()));
  }

  static std::string ReadThrough(PosixFile& file) {
    char bytes[64];
    if (file.Open(File::kOpenRead) == 0) return "(missing)";
    const std::uint64_t count = file.Read(sizeof bytes, bytes);
    file.Close();
    return {bytes, static_cast<std::size_t>(count)};
  }

  static bool WriteThrough(PosixFile& file, const std::string& bytes) {
    const bool isWritten =
        file.Open(File::kOpenWrite) != 0 && file.Write(bytes.size(), bytes.data()) == bytes.size();
    file.Close();
    return isWritten;
  }

  ScratchDirectory scratch_;
  const std::string directory_ = scratch_ / "cache";
};

TEST_F(HeldDirectoryTest, EveryOperationReachesTheFileItNames) {
  const long before = HeldDirectories();
  PosixFile file;
  for (const char* name : {"content", "content.ox_meta"}) {
    const std::string path = directory_ + "/" + name;
    Bind(file, name);
    EXPECT_FALSE(file.Exists());
    EXPECT_EQ(0U, file.GetSize());
    EXPECT_EQ(before + 1, HeldDirectories());
    EXPECT_TRUE(WriteThrough(file, "bytes"));
    EXPECT_EQ("bytes", ReadWhole(path));
    EXPECT_TRUE(file.Exists());
    EXPECT_EQ(5U, file.GetSize());
    EXPECT_EQ("bytes", ReadThrough(file));
    EXPECT_STREQ(path.c_str(), file.Path());
    EXPECT_TRUE(file.Delete(0));
    EXPECT_EQ("(missing)", ReadWhole(path));
  }
  // Elsewhere, and without a directory to hold.
  WriteWhole(scratch_ / "above", "other");
  ASSERT_TRUE(file.SetPath((scratch_ / "above").c_str()));
  EXPECT_EQ("other", ReadThrough(file));
  EXPECT_EQ(before, HeldDirectories());
  // The working directory may change.
  for (int i = 0; i < 2; ++i) {
    file.SetPath("./file");
    EXPECT_FALSE(file.Exists());
  }
  EXPECT_EQ(before, HeldDirectories());
  Bind(file, "");
  EXPECT_TRUE(file.Exists());
  file.LeaveDirectory();
  EXPECT_EQ(before, HeldDirectories());
}

TEST_F(HeldDirectoryTest, NoLinkIsFollowed) {
  WriteWhole(scratch_ / "outside", "precious");
  ASSERT_EQ(0, symlink((scratch_ / "outside").c_str(), (directory_ + "/link").c_str()));
  PosixFile file;
  Bind(file, "link");
  EXPECT_FALSE(file.Exists());
  EXPECT_EQ(0U, file.GetSize());
  EXPECT_EQ("(missing)", ReadThrough(file));
  EXPECT_FALSE(WriteThrough(file, "x"));
  EXPECT_TRUE(file.Delete(0));
  EXPECT_EQ("precious", ReadWhole(scratch_ / "outside"));
}

TEST_F(HeldDirectoryTest, AnObjectBoundToNothingTouchesNothing) {
  WriteWhole(directory_ + "/file", "bytes");
  const std::string tooLong = directory_ + "/" + std::string(PATH_MAX, 'x');
  for (const char* path : {"", tooLong.c_str()}) {
    PosixFile file;
    Bind(file, "file");
    EXPECT_FALSE(file.SetPath(path));
    EXPECT_STREQ("", file.Path());
    EXPECT_FALSE(file.Exists());
    EXPECT_EQ("(missing)", ReadThrough(file));
    EXPECT_FALSE(WriteThrough(file, "x"));
    EXPECT_FALSE(file.Delete(0));
    EXPECT_EQ("bytes", ReadWhole(directory_ + "/file"));
  }
}

TEST_F(HeldDirectoryTest, TheLastDescriptorIsTheFiles) {
  WriteWhole(directory_ + "/file", "bytes");
  PosixFile file;
  Bind(file, "file");
  const int firstFree = dup(STDERR_FILENO);
  close(firstFree);
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit one = before;
  one.rlim_cur = static_cast<rlim_t>(firstFree) + 1;
  setrlimit(RLIMIT_NOFILE, &one);
  EXPECT_EQ("bytes", ReadThrough(file));
  setrlimit(RLIMIT_NOFILE, &before);
}

// As when somebody empties a cache with rm -r while it is in use.
TEST_F(HeldDirectoryTest, ADirectoryMadeAnewIsFoundByTheNextWrite) {
  PosixFile writer;
  PosixFile reader;
  Bind(writer, "file");
  Bind(reader, "file");
  std::filesystem::remove_all(directory_);
  std::filesystem::create_directory(directory_);
  EXPECT_TRUE(WriteThrough(writer, "bytes"));
  EXPECT_EQ("bytes", ReadWhole(directory_ + "/file"));
  // Holders that did not notice themselves.
  ASSERT_TRUE(reader.SetPath((directory_ + "/file").c_str()));
  EXPECT_EQ(5U, reader.GetSize());
  EXPECT_EQ("bytes", ReadThrough(reader));
}

// As when something is mounted over it. Nothing tells, but it does not last.
TEST_F(HeldDirectoryTest, ADirectoryThatTookItsPlaceIsFoundSoon) {
  WriteWhole(directory_ + "/file", "old");
  PosixFile file;
  Bind(file, "file");
  std::filesystem::rename(directory_, scratch_ / "moved");
  std::filesystem::create_directory(directory_);
  EXPECT_FALSE(file.Delete(0));
  EXPECT_EQ("old", ReadWhole(scratch_ / "moved/file"));
  WriteWhole(directory_ + "/file", "newer");
  const auto start = std::chrono::steady_clock::now();
  while (file.GetSize() != 5U) {
    const auto waited = std::chrono::steady_clock::now() - start;
    ASSERT_LT(waited, std::chrono::seconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

TEST_F(HeldDirectoryTest, NoneIsHeldOnceTheManagerIsGone) {
  const long before = HeldDirectories();
  host::PosixKernel kernel(directory_);
  void* fileSystem = kernel.GetInterface("IFileSystem");
  File* files[2];
  for (int round = 0; round < 2; ++round) {
    for (File*& file : files) {
      file = kernel.OwnFileSystem().CreateFile();
      file->SetPath((directory_ + "/file").c_str());
      EXPECT_EQ(0U, file->GetSize());
    }
    for (File* file : files)
      kernel.OwnFileSystem().DestroyFile(file);
  }
  EXPECT_EQ(before + 2, HeldDirectories());
  kernel.ReleaseInterface(fileSystem);
  EXPECT_EQ(before, HeldDirectories());
}

}  // namespace
}  // namespace ox::testing

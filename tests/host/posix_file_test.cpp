// File objects and the file system on real files.
#include "host/posix_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/posix_mutex.h"
#include "tests/support/scratch_directory.h"
#include <oxfilecache/host.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/string.h>

namespace ox::testing {
namespace {

using host::PosixKernel;
using internal::PosixFile;

using File = os::filesystem::File;

class PosixFileTest : public ::testing::Test {
 protected:
  PosixFileTest() : kernel_(scratch_.Path()) { SetKernel(&kernel_); }
  ~PosixFileTest() override {
    EXPECT_EQ(0U, kernel_.Counts().blocks);
    EXPECT_EQ(0U, kernel_.Counts().bytes);
    SetKernel(nullptr);
  }

  ScratchDirectory scratch_;
  PosixKernel kernel_;
};

TEST_F(PosixFileTest, WritesReadsAndDeletes) {
  const std::string path = scratch_ / "file";
  const std::string bytes("binary\0bytes\n", 13);
  PosixFile file;
  ASSERT_TRUE(file.SetPath(path.c_str()));
  ASSERT_TRUE(file.Open(File::kOpenWrite));
  EXPECT_EQ(bytes.size(), file.Write(bytes.size(), bytes.data()));
  file.Close();
  struct stat status;
  ASSERT_EQ(0, stat(path.c_str(), &status));
  EXPECT_EQ(0600U, status.st_mode & 0777U);

  char buffer[64];
  ASSERT_TRUE(file.Open(File::kOpenRead));
  EXPECT_EQ(4U, file.Read(4, buffer));
  EXPECT_EQ(9U, file.Read(sizeof buffer, buffer));
  EXPECT_EQ(0U, file.Read(sizeof buffer, buffer));
  EXPECT_EQ(0U, file.Write(1, "x"));

  ASSERT_TRUE(file.Open(File::kOpenWrite));  // empties
  EXPECT_EQ(0U, file.Read(1, buffer));
  file.Close();
  EXPECT_EQ(0U, file.GetSize());
  EXPECT_TRUE(file.Delete(0));
  EXPECT_FALSE(file.Exists());
}

TEST_F(PosixFileTest, RefusesWhatItDoesNotKnow) {
  PosixFile file;
  EXPECT_FALSE(file.SetPath(nullptr));
  EXPECT_FALSE(file.SetPath(""));
  EXPECT_FALSE(file.SetPath(std::string(PATH_MAX, 'x').c_str()));
  EXPECT_FALSE(file.Open(File::kOpenRead));
  EXPECT_FALSE(file.Exists());
  EXPECT_EQ(0U, file.Read(1, nullptr));
  ASSERT_TRUE(file.SetPath((scratch_ / "file").c_str()));
  for (const int mode : {0, 1, 3, 0x34, 0x36})
    EXPECT_FALSE(file.Open(mode)) << mode;
  EXPECT_EQ("(missing)", ReadWhole(scratch_ / "file"));
}

// Planted under the names of cache files; nothing may be followed, emptied, or waited for. Under
// the name of a metadata file they are opened on sight, and give nothing.
TEST_F(PosixFileTest, TouchesNothingButRegularFiles) {
  const std::string outside = scratch_ / "outside";
  WriteWhole(outside, "precious");
  for (const std::string suffix : {"", ".ox_meta"}) {
    const std::string directory = scratch_ / ("directory" + suffix);
    const std::string link = scratch_ / ("link" + suffix);
    const std::string fifo = scratch_ / ("fifo" + suffix);
    ASSERT_EQ(0, mkdir(directory.c_str(), 0700));
    ASSERT_EQ(0, symlink(outside.c_str(), link.c_str()));
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    for (const std::string& path : {directory, link, fifo}) {
      PosixFile file;
      char buffer[16];
      ASSERT_TRUE(file.SetPath(path.c_str()));
      EXPECT_TRUE(!file.Exists() || !file.Open(File::kOpenRead) ||
                  file.Read(sizeof buffer, buffer) == 0)
          << path;
      if (!suffix.empty()) continue;
      EXPECT_FALSE(file.Open(File::kOpenRead)) << path;
      EXPECT_FALSE(file.Open(File::kOpenWrite)) << path;
      EXPECT_EQ(0U, file.GetSize()) << path;
      EXPECT_EQ(path == directory, file.Exists() != 0) << path;
      EXPECT_EQ(path == directory, file.Delete(0) == 0) << path;
    }
  }
  EXPECT_EQ("precious", ReadWhole(outside));
}

TEST_F(PosixFileTest, NoDescriptorStaysOpen) {
  WriteWhole(scratch_ / "file", "bytes");
  const auto before = OpenDescriptors();
  const int next = dup(STDERR_FILENO);
  close(next);
  host::PosixFileSystem& fileSystem = kernel_.OwnFileSystem();
  File* file = fileSystem.CreateFile();
  file->SetPath((scratch_ / "file").c_str());
  ASSERT_TRUE(file->Open(File::kOpenRead));
  ASSERT_TRUE(file->Open(File::kOpenRead));
  EXPECT_EQ(before + 1, OpenDescriptors());
  EXPECT_EQ(FD_CLOEXEC, fcntl(next, F_GETFD));
  EXPECT_EQ(1U, kernel_.Counts().files);
  fileSystem.DestroyFile(file);
  fileSystem.DestroyFile(nullptr);
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(0U, kernel_.Counts().files);
}

// What Exists found serves the operation that follows it, and nothing later.
TEST_F(PosixFileTest, ALookAheadIsNeverStale) {
  for (const char* name : {"file", "file.ox_meta"}) {
    const std::string path = scratch_ / name;
    PosixFile file;
    ASSERT_TRUE(file.SetPath(path.c_str()));
    WriteWhole(path, "12345");
    ASSERT_TRUE(file.Exists());
    EXPECT_EQ(5U, file.GetSize());
    WriteWhole(path, "123");
    EXPECT_EQ(3U, file.GetSize());
    ASSERT_TRUE(file.Exists());
    ASSERT_TRUE(file.Open(File::kOpenWrite));
    EXPECT_EQ(0U, file.GetSize());
    EXPECT_EQ(2U, file.Write(2, "ab"));
    ASSERT_TRUE(file.Exists());
    ASSERT_TRUE(file.Open(File::kOpenRead));
    char buffer[8];
    EXPECT_EQ(2U, file.Read(sizeof buffer, buffer));
    ASSERT_TRUE(file.Exists());
    ASSERT_TRUE(file.Delete(0));
    EXPECT_FALSE(file.Open(File::kOpenRead));
    EXPECT_FALSE(file.Exists());
    EXPECT_EQ(0U, file.GetSize());
  }
}

struct Visit {
  std::vector<std::string> seen;
  std::string prefix;
};

bool RecordAndDelete(File& entry, bool isDirectory, void* context) {
  auto* visit = static_cast<Visit*>(context);
  OxString path;
  entry.GetPath(path);
  visit->seen.push_back(path.UTF8() + std::string(isDirectory ? " directory" : ""));
  // The next one too: a snapshot still visits it.
  PosixFile other;
  other.SetPath((visit->prefix + "/c").c_str());
  other.Delete(0);
  entry.Delete(0);
  return visit->seen.size() < 5;
}

TEST_F(PosixFileTest, EnumeratesASnapshotOldestFirstByteForByte) {
  for (const char* name : {"a", "b", "c", "d", "e", "\xC3\xA4"}) {
    WriteWhole(scratch_ / name, "x");
    SetModified(scratch_ / name, 1000);
  }
  ASSERT_EQ(0, mkdir((scratch_ / "sub").c_str(), 0700));
  WriteWhole(scratch_ / "sub/inner", "x");
  SetModified(scratch_ / "sub", 2000);
  SetModified(scratch_ / "d", 500);
  SetModified(scratch_ / "b", 3000);
  Visit visit;
  visit.prefix = scratch_.Path() + "/";  // doubled: nothing is normalised
  PosixFile directory;
  directory.SetPath(visit.prefix.c_str());
  ASSERT_TRUE(directory.EnumerateDirectory(&RecordAndDelete, &visit, 0));
  const std::string p = visit.prefix + "/";
  EXPECT_EQ((std::vector<std::string>{p + "d", p + "a", p + "c", p + "e", p + "\xC3\xA4"}),
            visit.seen);
  visit.seen.clear();
  directory.EnumerateDirectory(&RecordAndDelete, &visit, 0);
  EXPECT_EQ((std::vector<std::string>{p + "sub directory", p + "b"}), visit.seen);

  directory.SetPath((scratch_ / "missing").c_str());
  EXPECT_FALSE(directory.EnumerateDirectory(&RecordAndDelete, &visit, 0));
}

bool AskWhileChanging(File& /*entry*/, bool /*isDirectory*/, void* context) {
  const auto& path = *static_cast<std::string*>(context);
  PosixFile file;
  file.SetPath(path.c_str());
  EXPECT_TRUE(file.Exists());
  EXPECT_EQ(1U, file.GetSize());
  EXPECT_TRUE(file.Open(File::kOpenWrite));
  EXPECT_EQ(3U, file.Write(3, "new"));
  file.Close();
  EXPECT_EQ(3U, file.GetSize());
  EXPECT_TRUE(file.Delete(0));
  EXPECT_FALSE(file.Exists());
  EXPECT_EQ(0U, file.GetSize());
  return false;
}

TEST_F(PosixFileTest, AnEnumerationAnswersUntilSomethingChanges) {
  WriteWhole(scratch_ / "a", "x");
  std::string path = scratch_ / "a";
  PosixFile directory;
  directory.SetPath(scratch_.Path().c_str());
  ASSERT_TRUE(directory.EnumerateDirectory(&AskWhileChanging, &path, 0));
}

TEST_F(PosixFileTest, DefaultDirectoryIsMadeAndKeptByteForByte) {
  const std::string path = scratch_ / "one/two/";
  PosixKernel kernel(path);
  OxString out;
  ASSERT_TRUE(kernel.OwnFileSystem().GetDefaultDirectory(out));
  EXPECT_EQ(path, out.UTF8());
  struct stat status;
  ASSERT_EQ(0, stat(path.c_str(), &status));
  EXPECT_EQ(0700U, status.st_mode & 0777U);

  WriteWhole(scratch_ / "file", "x");
  for (const std::string& bad : {std::string(), scratch_ / "file", scratch_ / "file/below"}) {
    PosixKernel other(bad);
    EXPECT_FALSE(other.OwnFileSystem().GetDefaultDirectory(out)) << bad;
    EXPECT_TRUE(out.IsEmpty());
  }
}

TEST_F(PosixFileTest, KernelCountsWhatIsTaken) {
  void* block = kernel_.Allocate(100, nullptr, 0);
  EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t));
  EXPECT_EQ(1U, kernel_.Counts().blocks);
  EXPECT_EQ(100U, kernel_.Counts().bytes);
  kernel_.Free(block, nullptr, 0);
  EXPECT_EQ(nullptr, kernel_.Allocate(SIZE_MAX - 4, nullptr, 0));
  EXPECT_EQ(nullptr, kernel_.GetInterface("IOther"));
  IOxMutex* mutex = kernel_.CreateMutex();
  EXPECT_TRUE(mutex->Lock() && mutex->Lock() && mutex->Unlock() && mutex->Unlock());
  EXPECT_EQ(1U, kernel_.Counts().mutexes);
  kernel_.DestroyMutex(mutex);
  EXPECT_EQ(0U, kernel_.Counts().mutexes);
}

}  // namespace
}  // namespace ox::testing

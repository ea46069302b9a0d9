// File objects of the Linux host on real files, in every surrounding that they must work in.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "tests/host/host_fixture.h"

namespace ox::testing {
namespace {

const std::string kBytes("binary\0bytes\n", 13);

using FileTest = HostTest;

// Every operation on a content file and on a metadata file. What Exists has found is used, and
// asked for again, in between.
void UseFiles(host::PosixFileSystem& fileSystem, const std::string& directory) {
  for (const std::string name : {"content", "content.ox_meta"}) {
    SCOPED_TRACE(name);
    const std::string path = directory + "/" + name;
    BoundFile file(fileSystem, path);
    EXPECT_FALSE(file->Exists());
    EXPECT_EQ(0U, file->GetSize());
    EXPECT_FALSE(file->Open(File::kOpenRead));
    ASSERT_TRUE(file->Open(File::kOpenWrite));
    EXPECT_EQ(kBytes.size(), file->Write(kBytes.size(), kBytes.data()));
    file->Close();
    EXPECT_EQ(kBytes, ReadWhole(path));
    EXPECT_EQ(fs::perms(0600), fs::status(path).permissions());

    ASSERT_TRUE(file->Exists());
    EXPECT_EQ(kBytes.size(), file->GetSize());
    ASSERT_TRUE(file->Exists());
    ASSERT_TRUE(file->Open(File::kOpenRead));
    char bytes[64];
    errno = EINTR;  // of some call before
    EXPECT_EQ(4U, file->Read(4, bytes));
    EXPECT_EQ(9U, file->Read(sizeof bytes - 4, bytes + 4));
    EXPECT_EQ(0U, file->Read(1, bytes));
    EXPECT_EQ(kBytes, std::string(bytes, 13));
    EXPECT_EQ(0U, file->Write(1, "x"));

    ASSERT_TRUE(file->Open(File::kOpenWrite));  // empties
    EXPECT_EQ(0U, file->GetSize());
    EXPECT_EQ(0U, file->Read(1, bytes));
    EXPECT_EQ(1U, file->Write(1, "x"));
    file->Close();
    EXPECT_TRUE(file->Exists());
    EXPECT_TRUE(file->Delete(0));
    EXPECT_EQ(0U, file->GetSize());
    EXPECT_FALSE(file->Open(File::kOpenRead));
    EXPECT_FALSE(file->Exists());
    EXPECT_FALSE(file->Delete(0));
  }
  BoundFile bound(fileSystem, directory + "/");
  EXPECT_TRUE(bound->Exists());
  EXPECT_TRUE(bound->EnumerateDirectory([](File&, bool, void*) { return true; }, nullptr, 0));
}

// The directory is held open, or cannot be: its path is too long, also for the room in a file
// object, or it is relative. Whatever is opened is closed on exec.
TEST_F(FileTest, EveryOperationInEveryDirectory) {
  const std::string longest = scratch_ / std::string(190 - scratch_.Path().size(), 'd');
  const std::string tooLong = longest + "/nested";
  fs::create_directories(tooLong);
  const fs::path before = fs::current_path();
  commonOpenFlags = ~0;
  for (const std::string& directory : {scratch_.Path() + "/", longest, tooLong}) {
    SCOPED_TRACE(directory);
    UseFiles(fileSystem_, directory);
    fs::current_path(directory);
    UseFiles(fileSystem_, ".");
  }
  EXPECT_NE(0, commonOpenFlags & O_CLOEXEC);
  fs::current_path(before);
}

TEST_F(FileTest, APathMayBeOfOneCharacter) {
  OxString path;
  BoundFile(fileSystem_, "a")->GetPath(path);
  EXPECT_STREQ(path.UTF8(), "a");
}

// Interrupted calls are tried again, and go on where they had done a part.
TEST_F(FileTest, InterruptedCallsGoOn) {
  bool isReached = true;
  for (std::uint64_t k = 1; isReached && !HasFailure(); ++k) {
    SCOPED_TRACE(k);
    callInterrupts.Arm(k, FaultDriver::Mode::kOnce);
    UseFiles(fileSystem_, scratch_.Path());
    isReached = callInterrupts.WasReached();
    callInterrupts.Disarm();
  }
}

TEST_F(FileTest, AReadThatFailsGivesNothing) {
  WriteWhole(scratch_ / "file", kBytes);
  BoundFile file(fileSystem_, scratch_ / "file");
  ASSERT_TRUE(file->Open(File::kOpenRead));
  callInterrupts.Arm(2, FaultDriver::Mode::kOnce);  // a read of a part
  callFaults.Arm(2, FaultDriver::Mode::kOnce);
  char bytes[13];
  EXPECT_EQ(0U, file->Read(sizeof bytes, bytes));
  callInterrupts.Disarm();
  callFaults.Disarm();
  ASSERT_TRUE(file->Open(File::kOpenRead));
  fs::resize_file(scratch_ / "file", 5);
  EXPECT_EQ(5U, file->Read(sizeof bytes, bytes));
}

// One descriptor is left, which the open directory takes at first; it may be number 0.
TEST_F(FileTest, TheLastDescriptorIsTheFiles) {
  WriteWhole(scratch_ / "file", kBytes);
  const int input = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  UseFiles(fileSystem_, scratch_.Path());
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit one = {1, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &one);
  BoundFile file(fileSystem_, scratch_ / "file");
  char byte;
  EXPECT_EQ(13U, file->GetSize());
  EXPECT_TRUE(file->Open(File::kOpenRead) && file->Read(1, &byte) == 1);
  EXPECT_TRUE(file->Open(File::kOpenWrite) && file->Write(1, "x") == 1);
  file->Close();
  setrlimit(RLIMIT_NOFILE, &before);
  fileSystem_.CloseDirectories();
  errno = EINTR;
  EXPECT_TRUE(BoundFile(fileSystem_, scratch_.Path())
                  ->EnumerateDirectory([](File&, bool, void*) { return true; }, nullptr, 0));
  EXPECT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD));
  dup2(input, STDIN_FILENO);
  close(input);
}

TEST_F(FileTest, BoundToNothingItTouchesNothing) {
  File* fresh = fileSystem_.CreateFile();
  EXPECT_FALSE(fresh->Open(File::kOpenRead));
  fileSystem_.DestroyFile(fresh);
  WriteWhole(scratch_ / "file", kBytes);
  BoundFile file(fileSystem_, scratch_ / "file");
  for (const int mode : {0, 1, 3, 0x34, 0x36})
    EXPECT_FALSE(file->Open(mode)) << mode;
  const std::string tooLong(PATH_MAX, 'x');
  EXPECT_TRUE(file->SetPath(tooLong.c_str() + 1));
  for (const char* path : {static_cast<const char*>(nullptr), "", tooLong.c_str()}) {
    ASSERT_TRUE(file->SetPath((scratch_ / "file").c_str()) && file->Exists());
    EXPECT_FALSE(file->SetPath(path));
    EXPECT_FALSE(file->Exists() || file->Open(File::kOpenRead) || file->Open(File::kOpenWrite) ||
                 file->Delete(0));
    EXPECT_EQ(0U, file->GetSize() + file->Read(1, nullptr) + file->Write(1, "x"));
  }
  EXPECT_EQ(kBytes, ReadWhole(scratch_ / "file"));
}

// Planted under the names of cache files; nothing may be followed, emptied, or waited for. Under
// the name of a metadata file they are opened on sight, and give nothing.
TEST_F(FileTest, TouchesNothingButRegularFiles) {
  WriteWhole(scratch_ / "outside", "precious");
  for (const std::string suffix : {"", ".ox_meta"}) {
    const std::string directory = scratch_ / ("directory" + suffix);
    const std::string link = scratch_ / ("link" + suffix);
    const std::string fifo = scratch_ / ("fifo" + suffix);
    fs::create_directory(directory);
    fs::create_symlink("outside", link);
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    for (const std::string& path : {directory, link, fifo}) {
      SCOPED_TRACE(path);
      BoundFile file(fileSystem_, path);
      char byte;
      EXPECT_TRUE(!file->Exists() || !file->Open(File::kOpenRead) || !file->Read(1, &byte));
      EXPECT_FALSE(file->Open(File::kOpenRead) || file->Open(File::kOpenWrite));
      EXPECT_EQ(0U, file->GetSize());
      EXPECT_TRUE(!suffix.empty() || (path == directory) == (file->Exists() != 0));
      EXPECT_EQ(path == directory, file->Delete(0) == 0);
    }
  }
  EXPECT_EQ("precious", ReadWhole(scratch_ / "outside"));
}

// What Exists found serves the operation that follows it, and nothing later.
TEST_F(FileTest, WhatExistsFoundIsNeverStale) {
  for (const std::string name : {"file", "file.ox_meta"}) {
    SCOPED_TRACE(name);
    BoundFile file(fileSystem_, scratch_ / name);
    char bytes[8];
    const std::vector<std::function<void()>> between = {
        [&] { EXPECT_EQ(0U, file->GetSize() - 5 + file->Read(1, bytes)); },
        [&] { file->Close(); },
        [&] { file->Read(1, nullptr); },
        [&] { file->Write(1, nullptr); },
        [&] { file->Delete(0); },
        [&] { file->Open(File::kOpenWrite); },
        nullptr,
        [&] { file->Open(0); },
        [&] { file->SetPath((scratch_ / name).c_str()); },
    };
    for (const auto& operation : between) {
      WriteWhole(scratch_ / name, "12345");
      ASSERT_TRUE(file->Exists());
      if (operation) operation();
      // Another file of that name, which an open descriptor does not show.
      fs::remove(scratch_ / name);
      WriteWhole(scratch_ / name, "123");
      EXPECT_TRUE(operation ? file->GetSize() == 3 : file->Exists() != 0);
      ASSERT_TRUE(file->Open(File::kOpenRead));
      EXPECT_EQ(3U, file->Read(sizeof bytes, bytes));
      file->Close();
    }
  }
}

// A start needs three objects, and short paths, even when there is no memory.
TEST_F(FileTest, WithoutMemory) {
  const std::string longPath = scratch_ / std::string(300, 'x');
  for (int round = 0; round < 2; ++round) {
    allocationFaults.Arm(1, FaultDriver::Mode::kFromThereOn);
    File* files[] = {fileSystem_.CreateFile(), fileSystem_.CreateFile(), fileSystem_.CreateFile(),
                     fileSystem_.CreateFile()};
    const bool isShort = files[0]->SetPath("short") != 0;
    const bool isLong = files[0]->SetPath(longPath.c_str()) != 0 || files[0]->Exists() != 0;
    allocationFaults.Disarm();
    EXPECT_TRUE(isShort && !isLong && files[1] != nullptr && files[2] != nullptr);
    EXPECT_EQ(nullptr, files[3]);
    for (File* file : files)
      fileSystem_.DestroyFile(file);
  }
}

TEST_F(FileTest, TheEndOfAManagerClosesTheDirectories) {
  auto* files = static_cast<IFileSystem*>(kernel_.GetInterface("IFileSystem"));
  BoundFile(*files, scratch_ / "file")->GetSize();
  EXPECT_EQ(descriptors_ + 1, OpenDescriptors());
  kernel_.ReleaseInterface(files);
  EXPECT_EQ(descriptors_, OpenDescriptors());
}

}  // namespace
}  // namespace ox::testing

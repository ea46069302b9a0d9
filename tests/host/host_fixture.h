// A kernel and its file system on a new directory. No descriptor may be left open.
#ifndef OX_TESTS_HOST_HOST_FIXTURE_H_
#define OX_TESTS_HOST_HOST_FIXTURE_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/scratch_directory.h"
#include "tests/support/system_calls.h"
#include <oxfilecache/host.h>
#include <oxfilecache/string.h>

namespace ox::testing {

namespace fs = std::filesystem;
using File = os::filesystem::File;

// A file object that goes with its scope.
class BoundFile {
 public:
  BoundFile(IFileSystem& fileSystem, const std::string& path)
      : fileSystem_(fileSystem), file_(fileSystem.CreateFile()) {
    file_->SetPath(path.c_str());
  }
  ~BoundFile() { fileSystem_.DestroyFile(file_); }
  BoundFile(const BoundFile&) = delete;
  BoundFile& operator=(const BoundFile&) = delete;

  File* operator->() const { return file_; }

 private:
  IFileSystem& fileSystem_;
  File* file_;
};

class HostTest : public ::testing::Test {
 protected:
  HostTest() { SetKernel(&kernel_); }
  ~HostTest() override {
    fileSystem_.CloseDirectories();
    EXPECT_EQ(descriptors_, OpenDescriptors());
    SetKernel(nullptr);
  }

  ScratchDirectory scratch_;
  const std::ptrdiff_t descriptors_ = OpenDescriptors();
  host::PosixKernel kernel_{scratch_.Path()};
  host::PosixFileSystem& fileSystem_ = kernel_.OwnFileSystem();
};

}  // namespace ox::testing

#endif

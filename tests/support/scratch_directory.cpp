#include "tests/support/scratch_directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace ox::testing {

ScratchDirectory::ScratchDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "oxtest-XXXXXX").string();
  EXPECT_NE(nullptr, mkdtemp(name.data()));
  path_ = name;
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void WriteWhole(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string ReadWhole(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return "(missing)";
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::ptrdiff_t OpenDescriptors() {
  const auto all = std::filesystem::directory_iterator("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

void SetModified(const std::string& path, std::int64_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  EXPECT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW));
}

}  // namespace ox::testing

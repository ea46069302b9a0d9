// A new, empty directory that goes with its test.
#ifndef OX_TESTS_SUPPORT_SCRATCH_DIRECTORY_H_
#define OX_TESTS_SUPPORT_SCRATCH_DIRECTORY_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace ox::testing {

class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::string& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

void WriteWhole(const std::string& path, const std::string& bytes);
// The bytes, or "(missing)".
std::string ReadWhole(const std::string& path);
// Of this process.
std::ptrdiff_t OpenDescriptors();
// Sets the modification time, in seconds since 1970.
void SetModified(const std::string& path, std::int64_t seconds);

}  // namespace ox::testing

#endif

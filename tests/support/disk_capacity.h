// A disk of a given size, as far as write(2) and statvfs(3) go: a test program that links this can
// have one of its directories filled.
#ifndef OX_TESTS_SUPPORT_DISK_CAPACITY_H_
#define OX_TESTS_SUPPORT_DISK_CAPACITY_H_

#include <cstdint>
#include <string>
#include <utility>

namespace ox::testing {

// From here on, until it is destroyed, the files of the directory take no more than that many bytes
// together. One at a time.
class DiskCapacity {
 public:
  DiskCapacity(std::string directory, std::uint64_t bytes);
  ~DiskCapacity();
  DiskCapacity(const DiskCapacity&) = delete;
  DiskCapacity& operator=(const DiskCapacity&) = delete;

  std::uint64_t Free() const;

 private:
  const std::string directory_;
  const std::uint64_t bytes_;
};

}  // namespace ox::testing

#endif

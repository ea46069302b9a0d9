// A file descriptor that closes itself.
#ifndef OXFILECACHE_DESCRIPTOR_H_
#define OXFILECACHE_DESCRIPTOR_H_

#include <unistd.h>

#include <utility>

namespace ox {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.fd_, -1));
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { Reset(); }

  bool IsOpen() const { return fd_ >= 0; }
  int Get() const { return fd_; }
  // The caller closes it.
  int Release() { return std::exchange(fd_, -1); }
  void Reset(int fd = -1) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace ox

#endif

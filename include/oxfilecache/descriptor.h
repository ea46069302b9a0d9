// The owner of a file descriptor.
#ifndef OXFILECACHE_DESCRIPTOR_H_
#define OXFILECACHE_DESCRIPTOR_H_

#include <unistd.h>

#include <utility>

namespace ox {

// A file descriptor that closes itself. It can be moved and not copied; -1 stands for none. An
// error of close(2) is not reported.
//
// Threads: one at a time.
class UniqueFd {
 public:
  // Holds no descriptor.
  UniqueFd() = default;
  // Takes the descriptor over.
  explicit UniqueFd(int fd) : fd_(fd) {}
  // Takes the other's descriptor over; the other holds none afterwards.
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  // The same; the descriptor that this object held is closed.
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.fd_, -1));
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { Reset(); }

  // True when this object holds a descriptor.
  bool IsOpen() const { return fd_ >= 0; }
  // Stays with this object; -1 when there is none.
  int Get() const { return fd_; }
  // Hands it over: the caller closes it.
  int Release() { return std::exchange(fd_, -1); }
  // Closes the descriptor and takes another one over.
  void Reset(int fd = -1) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace ox

#endif

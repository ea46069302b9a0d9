#include "host/path_text.h"

#include <climits>
#include <cstring>
#include <new>

namespace ox::internal {

bool PathText::Assign(const char* path) {
  length_ = 0;
  nameStart_ = 0;
  const std::size_t length = path != nullptr ? std::strlen(path) : 0;
  if (length == 0 || length >= PATH_MAX || !MakeRoom(length + 1)) return false;
  std::memcpy(buffer_, path, length + 1);
  length_ = length;
  nameStart_ = View().rfind('/') + 1;  // 0 when there is no "/"
  return true;
}

bool PathText::MakeRoom(std::size_t bytes) {
  if (bytes <= capacity_) return true;
  char* const larger = new (std::nothrow) char[bytes];
  if (larger == nullptr) return false;
  heap_.reset(larger);
  buffer_ = larger;
  capacity_ = bytes;
  return true;
}

}  // namespace ox::internal

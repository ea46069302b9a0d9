// Two pieces of a path put together, in UTF-8.
#ifndef OX_CACHE_JOINED_PATH_H_
#define OX_CACHE_JOINED_PATH_H_

#include <cstddef>

#include <oxfilecache/string.h>

namespace ox::core::cache {

class JoinedPath {
 public:
  // The UTF-8 form of `first` up to its first zero unit, then `second`.
  JoinedPath(const OxString& first, const char* second);
  ~JoinedPath();
  JoinedPath(const JoinedPath&) = delete;
  JoinedPath& operator=(const JoinedPath&) = delete;

  // Null when memory ran out. There is no shortened path: with a piece missing it would name
  // another file.
  const char* Text() const { return text_; }
  std::size_t Length() const { return length_; }

 private:
  // Longer than the paths of most devices, so that finding an entry, reading its metadata and
  // deleting its files need no memory there.
  static constexpr std::size_t kInlineBytes = 256;

  char* text_;
  std::size_t length_;
  char inline_[kInlineBytes];
};

}  // namespace ox::core::cache

#endif

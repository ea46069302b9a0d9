// The path that a file object is bound to: a copy of its own. Short paths need no memory from the
// heap.
#ifndef OX_HOST_PATH_TEXT_H_
#define OX_HOST_PATH_TEXT_H_

#include <cstddef>
#include <memory>
#include <string_view>

namespace ox::internal {

class PathText {
 public:
  PathText() = default;
  PathText(const PathText&) = delete;
  PathText& operator=(const PathText&) = delete;

  // False, and empty from then on, for a null or empty path, for one of PATH_MAX bytes or more, and
  // when there is no memory for it.
  bool Assign(const char* path);

  // "" when there is none.
  const char* Text() const { return length_ > 0 ? buffer_ : ""; }
  std::string_view View() const { return {Text(), length_}; }
  // Where the file's name begins in the text: after the last "/".
  std::size_t NameStart() const { return nameStart_; }

 private:
  bool MakeRoom(std::size_t bytes);

  // Enough for the files of a cache whose directory has up to 120 bytes.
  char inline_[160];
  std::unique_ptr<char[]> heap_;
  char* buffer_ = inline_;
  std::size_t capacity_ = sizeof inline_;
  std::size_t length_ = 0;
  std::size_t nameStart_ = 0;
};

}  // namespace ox::internal

#endif

// Which content files were deleted since the directory was last synchronised. After a power cut
// such a file may be back, and metadata renamed to its name would be paired with the old content.
//
// Takes no memory, since it is told from within the module's calls. Not locked: the session's mutex
// guards it.
#ifndef OX_SESSION_RECENT_DELETIONS_H_
#define OX_SESSION_RECENT_DELETIONS_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <string_view>

namespace ox::internal {

class RecentDeletions {
 public:
  void Note(std::string_view path) {
    if (count_ < hashes_.size()) hashes_[count_] = std::hash<std::string_view>()(path);
    if (count_ <= hashes_.size()) ++count_;
  }
  // Any file may have been deleted.
  void NoteAny() { count_ = hashes_.size() + 1; }
  void Clear() { count_ = 0; }

  // Never false for a file that was deleted.
  bool MayContain(std::string_view path) const {
    if (count_ > hashes_.size()) return true;
    const auto end = hashes_.begin() + static_cast<std::ptrdiff_t>(count_);
    return std::find(hashes_.begin(), end, std::hash<std::string_view>()(path)) != end;
  }

 private:
  std::array<std::size_t, 32> hashes_{};
  // One more than there is room for: unknown which.
  std::size_t count_ = hashes_.size() + 1;
};

}  // namespace ox::internal

#endif

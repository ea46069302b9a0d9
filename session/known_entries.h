// Which entries were found to be what was committed, since the manager's last start or since they
// were stored. An entry that was written to, renamed or replaced since counts as unknown: the
// system changes the inode or its change time.
//
// Eight bytes for each entry: a digest of what tells entries apart, mixed with a number drawn at
// random. Not locked: the session's mutex guards it.
#ifndef OX_SESSION_KNOWN_ENTRIES_H_
#define OX_SESSION_KNOWN_ENTRIES_H_

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace ox::internal {

class KnownEntries {
 public:
  explicit KnownEntries(std::uint64_t secret) : secret_(secret) {}

  // Of an entry as it is now: its URL, the status of its open content, and its metadata. Not 0.
  std::uint64_t Fingerprint(std::string_view url, const struct stat& content,
                            std::string_view metadata) const;

  bool Contains(std::uint64_t fingerprint) const;
  // Forgets all others when more than `entries` times two are known: most are of entries that are
  // gone. Throws bad_alloc.
  void Add(std::uint64_t fingerprint, std::uint64_t entries);
  void Clear();

 private:
  std::size_t SlotOf(std::uint64_t fingerprint) const;
  void Grow();

  const std::uint64_t secret_;
  // Open addressing, at most half full; 0 is an empty slot. The size is a power of two.
  std::vector<std::uint64_t> slots_;
  std::size_t count_ = 0;
};

}  // namespace ox::internal

#endif

// How much is in a cache directory, known without asking the disk, and whether the manager still
// knows the same.
//
// Not locked: the session's mutex guards it.
#ifndef OX_SESSION_DISK_ACCOUNT_H_
#define OX_SESSION_DISK_ACCOUNT_H_

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "session/allocation_unit.h"

namespace ox::internal {

struct Survey;

// Bounds of the manager's running total of bytes. The total decides what the manager evicts, and it
// drifts: content of a new entry never counts, content of a scanned one is never taken off, and
// metadata is taken off only when it was read. Below 0 the total wraps and the manager evicts
// everything, so the session restarts it before either bound breaks a limit.
class TotalBounds {
 public:
  // A freshly scanned list counts exactly its contents.
  void Reset(std::uint64_t contentBytes);
  void Add(std::uint64_t bytes);
  // `isCertain` when the manager is known to count these bytes.
  void Subtract(std::uint64_t bytes, bool isCertain);

  std::int64_t Lowest() const { return lowest_; }
  std::int64_t Highest() const { return highest_; }

 private:
  std::int64_t lowest_ = 0;
  std::int64_t highest_ = 0;
};

class DiskAccount {
 public:
  explicit DiskAccount(AllocationUnit unit) : unit_(unit) {}

  // What the survey found, plus the files being written. Metadata files newer than `managerStart`
  // (nanoseconds since 1970) are written or touched while the manager runs, so it knows their
  // length. The account is no longer stale.
  void Reset(const Survey& survey, std::uint64_t bytesBeingWritten, std::int64_t managerStart);

  std::uint64_t Entries() const { return entries_; }
  // Bytes are those that the disk gives out; lengths are those of files.
  const AllocationUnit& Unit() const { return unit_; }
  // Of entries and of files being written.
  std::uint64_t Bytes() const { return bytes_; }

  void AddBeingWritten(std::uint64_t bytes) { bytes_ += bytes; }
  // Others may have let an entry grow that was deleted since, so this is less than was added.
  void SubtractBeingWritten(std::uint64_t bytes) { bytes_ -= std::min(bytes_, bytes); }

  // Another number after each change of an entry's files, and when there may have been one. From
  // any thread, without the lock.
  std::uint64_t Changes() const { return changes_; }

  // The manager has listed a new entry, or given up one that it had listed.
  void NoteCreated(std::uint64_t metadataLength);
  void NoteAbandoned(std::uint64_t metadataLength);
  // New files have taken the place of an entry's old ones, which took that many bytes.
  void NoteReplaced(std::uint64_t oldBytes);

  // The manager has tried to delete a file of an entry, which had this status; `error` is errno
  // where that failed. It deletes the content of every entry that leaves its list, and the metadata
  // only after that.
  void NoteContentDeletion(const struct stat& status, bool isDeleted, int error);
  void NoteMetadataDeletion(const struct stat& status, bool isDeleted, int error);

  // Whether the manager's total stays within 0 and `limit` when it loses a length of `subtracted`,
  // which it may not have counted, and counts `added` more.
  bool StaysWithin(std::uint64_t subtracted, std::uint64_t added, std::uint64_t limit) const;

  // The directory is no longer what the manager takes it for: the manager must be restarted before
  // its next use, and deletes nothing until then.
  void MarkStale() {
    isStale_ = true;
    ++changes_;
  }
  bool IsStale() const { return isStale_; }
  // Puts back an earlier state, for a failed deletion that means nothing.
  void SetStale(bool isStale) { isStale_ = isStale; }
  // errno of the last deletion that failed, 0 when none did.
  int DeletionError() const { return deletionError_; }

 private:
  void NoteDeletion(std::uint64_t bytes, bool isDeleted, int error);

  AllocationUnit unit_;
  std::uint64_t entries_ = 0;
  std::uint64_t bytes_ = 0;
  TotalBounds total_;
  std::int64_t managerStart_ = 0;
  bool isStale_ = false;
  int deletionError_ = 0;
  std::atomic<std::uint64_t> changes_{0};
};

}  // namespace ox::internal

#endif

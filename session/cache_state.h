// What a session knows of its cache without asking: kept up by the file system that the module
// works through and by the session's own steps. Guarded by the session's mutex.
#ifndef OX_SESSION_CACHE_STATE_H_
#define OX_SESSION_CACHE_STATE_H_

#include <algorithm>
#include <cstdint>

namespace ox::session {

// Bounds of the manager's running total of bytes. The total decides what the manager evicts, and it
// drifts: content of a new entry never counts, content of a scanned one is never taken off, and
// metadata is taken off only when it was read. Below 0 the total wraps and the manager evicts
// everything, so the session restarts it before either bound breaks a limit.
struct TotalBounds {
  std::int64_t lowest = 0;
  std::int64_t highest = 0;

  // A freshly scanned list counts exactly its contents.
  void Reset(std::uint64_t contentBytes) {
    lowest = static_cast<std::int64_t>(contentBytes);
    highest = lowest;
  }
  void Add(std::uint64_t bytes) {
    lowest += static_cast<std::int64_t>(bytes);
    highest += static_cast<std::int64_t>(bytes);
  }
  // `isCertain` when the manager is known to count the metadata of the entry that goes.
  void Take(std::uint64_t bytes, bool isCertain) {
    lowest -= static_cast<std::int64_t>(bytes);
    if (isCertain) highest -= static_cast<std::int64_t>(bytes);
  }
};

struct CacheState {
  std::uint64_t entries = 0;  // in the manager's list
  std::uint64_t bytes = 0;    // on disk: entries and files being written
  TotalBounds total;
  // Metadata files newer than this (nanoseconds since 1970) were written or touched since the
  // manager started, so the manager knows their length.
  std::int64_t managerStart = 0;
  // The directory no longer is what the manager takes it for, because a deletion failed.
  bool needsRestart = false;
  int deletionError = 0;  // errno of the last failed deletion

  void NoteDeletion(bool isDeleted, std::uint64_t fileBytes, int error) {
    if (isDeleted) {
      // A file may have grown in somebody else's hands.
      bytes -= std::min(bytes, fileBytes);
      return;
    }
    needsRestart = true;
    deletionError = error;
  }
};

}  // namespace ox::session

#endif

// Room on disk for what is written, within the limits of the cache.
//
// A writer's bytes count from its first Write on. One writer, the first to come, may exceed the
// limit of the whole cache, all others count within it; so the sum never exceeds the limit by more
// than one entry, and a lone writer evicts nothing before it commits.
//
// Bytes are those that the disk gives out, in whole blocks. Beside the limits, so many of them stay
// free on the file system as its user wants: where others fill it, entries are evicted.
//
// Not locked: the session's mutex guards it.
#ifndef OX_SESSION_ROOM_H_
#define OX_SESSION_ROOM_H_

#include <cstdint>

#include "session/running_cache.h"
#include "session/writer_list.h"

namespace ox::internal {

class Room {
 public:
  Room(RunningCache& cache, WriterList& writers, const session::CacheLimits& limits,
       std::uint64_t minFree)
      : cache_(cache), writers_(writers), limits_(limits), minFree_(minFree) {}

  // Lets the writer use that many more bytes. Evicts entries, and waits for other writers, where
  // they do not fit; kRefused where waiting cannot help.
  Error Grant(MutexLock& lock, WriterShare& share, std::uint64_t bytes);
  // Counts bytes that are on the disk already.
  void Count(WriterShare& share, std::uint64_t bytes);
  void TakeBack(WriterShare& share, std::uint64_t bytes);
  // From here on the writer's bytes are an entry's.
  void TurnIntoEntry(WriterShare& share);

  // Evicts until the limits allow one entry more, or the replacement of one that takes
  // `replacedBytes`. What is replaced is the entry used last, so it is the last to be evicted.
  Error MakeRoomToPublish(const WriterShare& share, std::uint64_t replacedBytes,
                          bool isReplacement);

  // Evicts until at most nine tenths of the limits are in use, and enough of the disk is free.
  Error MakeReserve();
  // Evicts until at most so many bytes and entries are there.
  Error EvictDownTo(std::uint64_t bytes, std::uint64_t entries);

  // After a step of this writer failed: evicts an entry where the step failed since the disk or a
  // quota is full, so that it can be tried again. The failure itself where that was not the reason,
  // or nothing is left to evict, or much was evicted in vain: files that are still open give no
  // space back. The older entry of the writer's URL stays.
  Error MakeDiskSpace(WriterShare& share, Error failure);

 private:
  // How many bytes are missing so that `bytes` can be written and `minFree` stay free.
  std::uint64_t Lacking(std::uint64_t bytes) const;
  Error KeepFree(WriterShare& share, std::uint64_t bytes);
  Error EvictForDisk(WriterShare& share, std::uint64_t neededBytes, Error failure);
  std::uint64_t EntriesToSpare(const WriterShare& share);
  // Evicts until so many bytes more fit, or no entry is left; `fits` tells which.
  Error EvictUntilFits(std::uint64_t bytes, bool* fits);
  // Not while an entry is lent: it may restart the manager.
  Error Evict(session::EvictionReason reason);
  std::uint64_t CountedBytes() const;
  Error EvictionFailed() const;

  RunningCache& cache_;
  WriterList& writers_;
  const session::CacheLimits& limits_;
  const std::uint64_t minFree_;
};

}  // namespace ox::internal

#endif

// Room on disk for what is written, within the limits of the cache.
//
// A writer's bytes count from its first Write on. One writer, the first to come, may exceed the
// limit of the whole cache, all others count within it; so the sum never exceeds the limit by more
// than one entry, and a lone writer evicts nothing before it commits.
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
  Room(RunningCache& cache, WriterList& writers, const session::CacheLimits& limits)
      : cache_(cache), writers_(writers), limits_(limits) {}

  // Lets the writer use that many more bytes. Evicts entries, and waits for other writers, where
  // they do not fit; kRefused where waiting cannot help.
  Error Grant(MutexLock& lock, WriterShare& share, std::uint64_t bytes);
  void TakeBack(WriterShare& share, std::uint64_t bytes);
  // From here on the writer's bytes are an entry's.
  void TurnIntoEntry(WriterShare& share);

  // Makes the cache take one entry more, or as many where it replaces one of `replacedBytes`. What
  // is replaced is the entry used last, so it is the last to be evicted.
  Error MakeRoomToPublish(const WriterShare& share, std::uint64_t replacedBytes,
                          bool isReplacement);

  // Evicts until at most nine tenths of the limits are in use.
  Error MakeReserve();
  // Evicts until at most so many bytes and entries are there.
  Error EvictDownTo(std::uint64_t bytes, std::uint64_t entries);

 private:
  bool EvictUntilFits(std::uint64_t bytes);
  std::uint64_t CountedBytes() const;
  Error EvictionFailed() const;

  RunningCache& cache_;
  WriterList& writers_;
  const session::CacheLimits& limits_;
};

}  // namespace ox::internal

#endif

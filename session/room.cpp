#include "session/room.h"

#include <algorithm>
#include <cerrno>

#include "session/allocation_unit.h"
#include "session/durable_io.h"

namespace ox::internal {

Error Room::Grant(MutexLock& lock, WriterShare& share, std::uint64_t bytes) {
  share.user = std::this_thread::get_id();
  for (;;) {
    if (Error error = cache_.EnsureCurrent()) return error;
    if (Error error = KeepFree(share, bytes)) return error;
    const bool isFirst = writers_.ClaimFirst(share);
    if (EvictUntilFits(isFirst ? 0 : bytes)) {
      Count(share, bytes);
      return {};
    }
    if (isFirst || cache_.Account().IsStale()) return EvictionFailed();
    if (!writers_.WaitForEnd(lock)) {
      return MakeError(ErrorKind::kRefused,
                       "the entries being written at the same time exceed MAX_CACHE_SIZE");
    }
  }
}

void Room::Count(WriterShare& share, std::uint64_t bytes) {
  share.bytes += bytes;
  cache_.Account().AddBeingWritten(bytes);
}

void Room::TakeBack(WriterShare& share, std::uint64_t bytes) {
  share.bytes -= bytes;
  cache_.Account().SubtractBeingWritten(bytes);
}

void Room::TurnIntoEntry(WriterShare& share) {
  share.bytes = 0;
  writers_.Remove(share);
}

bool Room::EvictUntilFits(std::uint64_t bytes) {
  while (CountedBytes() + bytes > limits_.maxSize) {
    if (cache_.Account().Entries() == 0 || !cache_.EvictOne()) return false;
  }
  return true;
}

std::uint64_t Room::CountedBytes() const {
  const std::uint64_t bytes = cache_.Account().Bytes();
  return bytes - std::min(bytes, writers_.BytesOfFirst());
}

Error Room::EvictionFailed() const {
  return cache_.DeletionFailed("cannot delete old entries", limits_.cacheDirectory);
}

Error Room::MakeRoomToPublish(const WriterShare& share, std::uint64_t replacedBytes,
                              bool isReplacement) {
  const std::uint64_t kept = isReplacement ? 1 : 0;
  const auto isTooMuch = [&] {
    // This writer's bytes become an entry's and count like those.
    const std::uint64_t counted =
        writers_.IsFirst(share) ? cache_.Account().Bytes() : CountedBytes();
    return counted > limits_.maxSize + replacedBytes ||
           cache_.Account().Entries() + 1 - kept > limits_.maxEntries;
  };
  while (cache_.Account().Entries() > kept && isTooMuch()) {
    if (!cache_.EvictOne()) return EvictionFailed();
  }
  return {};
}

Error Room::MakeReserve() {
  const std::uint64_t maxSize = std::uint64_t{limits_.maxSize} * 9 / 10;
  const std::uint64_t maxEntries = (std::uint64_t{limits_.maxEntries} * 9 + 9) / 10;
  return EvictDownTo(maxSize, maxEntries);
}

Error Room::EvictDownTo(std::uint64_t bytes, std::uint64_t entries) {
  const DiskAccount& account = cache_.Account();
  while (account.Entries() > 0 &&
         (CountedBytes() > bytes || account.Entries() > entries || !IsFree(0))) {
    if (!cache_.EvictOne(session::EvictionReason::kTrim)) return EvictionFailed();
  }
  return {};
}

bool Room::IsFree(std::uint64_t bytes) const {
  if (minFree_ == 0) return true;
  const std::uint64_t free = FreeBytes(limits_.cacheDirectory);
  return free >= minFree_ && free - minFree_ >= bytes;
}

// Finding the older entry of the URL makes it the last to be evicted.
std::uint64_t Room::EntriesToSpare(const WriterShare& share) {
  const bool hasOlder = cache_.Find(share.url) != nullptr;
  return hasOlder ? 1 : 0;
}

Error Room::KeepFree(const WriterShare& share, std::uint64_t bytes) {
  if (IsFree(bytes)) return {};
  const std::uint64_t spared = EntriesToSpare(share);
  while (!IsFree(bytes)) {
    if (cache_.Account().Entries() <= spared) {
      errno = ENOSPC;
      return SystemError("less than minFree bytes would be free, and no entry is left to evict",
                         limits_.cacheDirectory);
    }
    if (!cache_.EvictOne()) return EvictionFailed();
  }
  return {};
}

Error Room::MakeDiskSpace(const WriterShare& share, Error failure) {
  if (!MeansNoSpace(failure.systemError)) return failure;
  if (Error error = cache_.EnsureCurrent()) return error;
  if (cache_.Account().Entries() <= EntriesToSpare(share)) {
    failure.detail += ", and no entry is left to evict";
    return failure;
  }
  return cache_.EvictOne() ? Error{} : EvictionFailed();
}

}  // namespace ox::internal

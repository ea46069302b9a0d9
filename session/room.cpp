#include "session/room.h"

namespace ox::internal {

Error Room::Grant(MutexLock& lock, WriterShare& share, std::uint64_t bytes) {
  share.user = std::this_thread::get_id();
  for (;;) {
    if (Error error = cache_.EnsureCurrent()) return error;
    const bool isFirst = writers_.ClaimFirst(share);
    if (EvictUntilFits(isFirst ? 0 : bytes)) {
      share.bytes += bytes;
      cache_.Account().AddBeingWritten(bytes);
      return {};
    }
    if (isFirst || cache_.Account().IsStale()) return EvictionFailed();
    if (!writers_.WaitForEnd(lock)) {
      return MakeError(ErrorKind::kRefused,
                       "the entries being written at the same time exceed MAX_CACHE_SIZE");
    }
  }
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
  return cache_.Account().Bytes() - writers_.BytesOfFirst();
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
  while (account.Entries() > 0 && (CountedBytes() > bytes || account.Entries() > entries)) {
    if (!cache_.EvictOne(session::EvictionReason::kTrim)) return EvictionFailed();
  }
  return {};
}

}  // namespace ox::internal

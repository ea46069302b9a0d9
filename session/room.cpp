#include "session/room.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "session/allocation_unit.h"
#include "session/errno_meaning.h"

namespace ox::internal {

using session::EvictionReason;

Error Room::Grant(MutexLock& lock, WriterShare& share, std::uint64_t bytes) {
  share.user = std::this_thread::get_id();
  for (;;) {
    if (Error error = cache_.EnsureCurrent()) return error;
    if (Error error = KeepFree(share, bytes)) return error;
    const bool isFirst = writers_.ClaimFirst(share);
    bool fits = false;
    if (Error error = EvictUntilFits(isFirst ? 0 : bytes, &fits)) return error;
    if (fits) {
      Count(share, bytes);
      return {};
    }
    if (isFirst) return EvictionFailed();
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
  share.bytes = share.keptBytes;
  writers_.Remove(share);
}

Error Room::EvictUntilFits(std::uint64_t bytes, bool* fits) {
  const auto isTooMuch = [&] { return CountedBytes() + bytes > limits_.maxSize; };
  while (isTooMuch() && cache_.Account().Entries() > 0) {
    if (Error error = Evict(EvictionReason::kRoom)) return error;
  }
  *fits = !isTooMuch();
  return {};
}

Error Room::Evict(EvictionReason reason) {
  if (cache_.EvictOne(reason)) return {};
  // Somebody has deleted the files of what was to go: a restart tells what is there.
  return cache_.Account().DeletionError() == ENOENT ? cache_.EnsureCurrent() : EvictionFailed();
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
         (CountedBytes() > bytes || account.Entries() > entries || Lacking(0) > 0)) {
    if (Error error = Evict(EvictionReason::kTrim)) return error;
  }
  return {};
}

std::uint64_t Room::Lacking(std::uint64_t bytes) const {
  if (minFree_ == 0) return 0;
  const std::uint64_t free = FreeBytes(limits_.cacheDirectory);
  const std::uint64_t wanted = minFree_ + std::min(bytes, UINT64_MAX - minFree_);
  return wanted - std::min(wanted, free);
}

// Finding the older entry of the URL makes it the last to be evicted.
std::uint64_t Room::EntriesToSpare(const WriterShare& share) {
  const bool hasOlder = cache_.Find(*share.url) != nullptr;
  return hasOlder ? 1 : 0;
}

Error Room::KeepFree(WriterShare& share, std::uint64_t bytes) {
  while (const std::uint64_t lacking = Lacking(bytes)) {
    errno = ENOSPC;
    Error failure = SystemError("less than minFree bytes would be free", limits_.cacheDirectory);
    if (Error error = EvictForDisk(share, lacking, std::move(failure))) return error;
  }
  return {};
}

Error Room::MakeDiskSpace(WriterShare& share, Error failure) {
  if (!MeansNoSpace(failure.systemError)) return failure;
  if (Error error = cache_.EnsureCurrent()) return error;
  const bool mayLackSeal = std::exchange(share.fullDisk.mayLackSeal, true);
  Error error = EvictForDisk(share, share.bytes, std::move(failure));
  // Without the seal the step may succeed.
  return mayLackSeal || !MeansNoSpace(error.systemError) ? error : Error{};
}

// An eviction may give nothing back: the files may still be open somewhere, or another program
// takes the space. So there is an end before all entries are gone.
Error Room::EvictForDisk(WriterShare& share, std::uint64_t neededBytes, Error failure) {
  constexpr std::uint64_t kEntries = 16;
  constexpr std::uint64_t kTimes = 4;
  constexpr std::uint64_t kAtLeast = 65536;  // what a file system may round a need up to
  FullDisk& evicted = share.fullDisk;
  if (cache_.Account().Entries() <= EntriesToSpare(share)) {
    failure.detail += ", and no entry is left to evict";
    return failure;
  }
  if (evicted.entries >= kEntries &&
      evicted.bytes / kTimes >= neededBytes + share.bytes + kAtLeast) {
    failure.detail += ", although " + std::to_string(evicted.entries) +
                      " entries were evicted: they may still be open, or another program takes the "
                      "space";
    return failure;
  }
  const std::uint64_t before = cache_.Account().Bytes();
  if (Error error = Evict(EvictionReason::kRoom)) return error;
  ++evicted.entries;
  evicted.bytes += before - std::min(before, cache_.Account().Bytes());
  return {};
}

}  // namespace ox::internal

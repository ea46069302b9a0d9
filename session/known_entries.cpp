#include "session/known_entries.h"

#include <functional>

#include "session/use_clock.h"

namespace ox::internal {
namespace {

constexpr std::size_t kFirstSlots = 64;

// The finalizer of MurmurHash3: every bit of the number changes half of the bits of the result.
std::uint64_t Mix(std::uint64_t number) {
  number = (number ^ number >> 33) * 0xff51afd7ed558ccd;
  number = (number ^ number >> 33) * 0xc4ceb9fe1a85ec53;
  return number ^ number >> 33;
}

}  // namespace

std::uint64_t KnownEntries::Fingerprint(std::string_view url, const struct stat& content,
                                        std::string_view metadata) const {
  const std::hash<std::string_view> hash;
  const std::uint64_t parts[] = {hash(url), hash(metadata), content.st_ino,
                                 static_cast<std::uint64_t>(content.st_size),
                                 static_cast<std::uint64_t>(ToNanoseconds(content.st_ctim))};
  std::uint64_t fingerprint = secret_;
  for (const std::uint64_t part : parts)
    fingerprint = Mix(fingerprint ^ part);
  return fingerprint != 0 ? fingerprint : 1;
}

bool KnownEntries::Contains(std::uint64_t fingerprint) const {
  return !slots_.empty() && slots_[SlotOf(fingerprint)] == fingerprint;
}

void KnownEntries::Add(std::uint64_t fingerprint, std::uint64_t entries) {
  if (Contains(fingerprint)) return;
  if (count_ > entries * 2 + kFirstSlots) Clear();
  if ((count_ + 1) * 2 > slots_.size()) Grow();
  slots_[SlotOf(fingerprint)] = fingerprint;
  ++count_;
}

void KnownEntries::Clear() {
  slots_.clear();
  count_ = 0;
}

// Where the fingerprint is or, when it is not there, belongs.
std::size_t KnownEntries::SlotOf(std::uint64_t fingerprint) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = static_cast<std::size_t>(fingerprint) & mask;
  while (slots_[slot] != 0 && slots_[slot] != fingerprint)
    slot = (slot + 1) & mask;
  return slot;
}

void KnownEntries::Grow() {
  std::vector<std::uint64_t> old(slots_.empty() ? kFirstSlots : slots_.size() * 2);
  old.swap(slots_);
  for (const std::uint64_t fingerprint : old)
    if (fingerprint != 0) slots_[SlotOf(fingerprint)] = fingerprint;
}

}  // namespace ox::internal

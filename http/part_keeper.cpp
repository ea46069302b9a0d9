#include "http/part_keeper.h"

#include "http/stored_entry.h"
#include "http/validation.h"

namespace ox::internal::http {
namespace {

// A part is kept again after so many bytes more, and not before so much time has passed: each time
// writes a file of metadata. A kill loses what arrived since the last time.
constexpr std::uint64_t kBytesBetween = 1024 * 1024;
constexpr std::chrono::seconds kTimeBetween{2};
constexpr int kOk = 200;

}  // namespace

PartKeeper::PartKeeper(const std::string& url, const StoredAnswer& answer, std::uint64_t wholeBytes,
                       std::uint64_t keptBytes)
    : partUrl_(PartUrl(url)),
      answer_(answer),
      mayKeep_(answer.status == kOk && wholeBytes > 0 && !StrongValidator(answer).empty()),
      mayKeepNow_(mayKeep_),
      keptBytes_(keptBytes) {
  answer_.wholeBytes = wholeBytes;
}

bool PartKeeper::IsWorthKeeping(const BodyTarget& target) const {
  return target.IsStored() && target.Received() > 0 && target.Received() < answer_.wholeBytes;
}

void PartKeeper::NotePiece(BodyTarget& target) {
  if (!mayKeepNow_ || target.Received() < keptBytes_ + kBytesBetween) return;
  if (Clock::now() - kept_ < kTimeBetween || !IsWorthKeeping(target)) return;
  answer_.bodyBytes = target.Received();
  const auto metadata = ToMetadata(answer_, partUrl_);
  mayKeepNow_ = metadata && target.KeepPart(partUrl_, *metadata);
  keptBytes_ = target.Received();
  kept_ = Clock::now();
}

void PartKeeper::Keep(BodyTarget& target) {
  if (!mayKeep_ || !IsWorthKeeping(target)) return;
  answer_.bodyBytes = target.Received();
  if (const auto metadata = ToMetadata(answer_, partUrl_)) target.CommitPart(partUrl_, *metadata);
}

}  // namespace ox::internal::http

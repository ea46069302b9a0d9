#include "session/eviction_log.h"

#include <new>
#include <string>
#include <utility>

#include "session/entry_listing.h"
#include <oxfilecache/format.h>

namespace ox::internal {

void EvictionLog::Note(session::EvictionReason reason, std::string_view contentPath,
                       std::uint64_t bytes) {
  ++counts_[static_cast<std::size_t>(reason)];
  if (hasNews_ == nullptr) return;
  try {
    const std::string path(contentPath);
    news_.push_back({reason, path.substr(path.rfind('/') + 1),
                     SealedUrl(path + format::kMetadataSuffix), bytes});
    *hasNews_ = true;
  } catch (const std::bad_alloc&) {
    // Counted above.
  }
}

void EvictionLog::NoteDeletion(std::string_view contentPath, std::uint64_t bytes) {
  if (!cause_) return;
  Note(*cause_, contentPath, bytes);
}

std::uint64_t EvictionLog::Trimmed() const {
  using session::EvictionReason;
  return Count(EvictionReason::kRoom) + Count(EvictionReason::kTrim) + Count(EvictionReason::kAge) +
         Count(EvictionReason::kLimits);
}

std::vector<session::Eviction> EvictionLog::TakeNews() {
  *hasNews_ = false;
  return std::exchange(news_, {});
}

}  // namespace ox::internal

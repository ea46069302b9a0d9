#include "session/shown_files.h"

#include <string_view>

namespace ox::internal {

bool ShownFiles::IsVisitedContent(const char* path) const {
  return visited_ != nullptr && visitedContent_ == path;
}

std::optional<std::uint64_t> ShownFiles::VisitedSize(const char* path) const {
  if (visited_ == nullptr) return std::nullopt;
  std::string_view rest(path);
  if (rest.substr(0, visitedContent_.size()) != visitedContent_) return std::nullopt;
  rest.remove_prefix(visitedContent_.size());
  if (rest.empty()) return visited_->contentBytes;
  if (rest == format::kMetadataSuffix) return visited_->metadataBytes;
  return std::nullopt;
}

}  // namespace ox::internal

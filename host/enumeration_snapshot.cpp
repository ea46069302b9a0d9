#include "host/enumeration_snapshot.h"

namespace ox::internal {
namespace {
thread_local EnumerationSnapshot* current = nullptr;
}

EnumerationSnapshot::EnumerationSnapshot(const std::string& prefix,
                                         const std::vector<DirectoryEntry>& entries)
    : prefix_(prefix), outer_(current) {
  files_.reserve(entries.size());
  for (const DirectoryEntry& entry : entries) {
    if (entry.isRegular) files_.emplace(entry.name, &entry);
  }
  current = this;
}

EnumerationSnapshot::~EnumerationSnapshot() {
  current = outer_;
}

const DirectoryEntry* EnumerationSnapshot::Find(std::string_view path) {
  if (current == nullptr || path.substr(0, current->prefix_.size()) != current->prefix_) {
    return nullptr;
  }
  const auto found = current->files_.find(path.substr(current->prefix_.size()));
  return found != current->files_.end() ? found->second : nullptr;
}

void EnumerationSnapshot::DropAll() {
  for (EnumerationSnapshot* each = current; each != nullptr; each = each->outer_) {
    each->files_.clear();
  }
}

}  // namespace ox::internal

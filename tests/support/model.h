// A plain model of the cache manager, written for reading: what it lists, and every byte on the
// disk. ASCII only, so that bytes and units are the same.
#ifndef OX_TESTS_SUPPORT_MODEL_H_
#define OX_TESTS_SUPPORT_MODEL_H_

#include <algorithm>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

namespace ox::testing {

struct ModelEntry {
  std::string path;
  std::string metadata;  // as held in memory
  std::uint32_t declared;
  bool isPending;
};

class Model {
 public:
  static constexpr char kSuffix[] = ".ox_meta";

  std::map<std::string, std::string> disk;
  std::uint32_t maxSize = 0;
  std::uint32_t maxEntries = 0;
  std::uint32_t maxEntrySize = 0;

  // With the limits as they are set, over the files in the order of their enumeration.
  void Start(const std::vector<std::string>& order) {
    total_ = 0;
    list_.clear();
    for (const std::string& name : order)
      Scan(name);
  }

  void Stop() {
    for (const ModelEntry& entry : list_) {
      if (entry.isPending) DeleteFiles(entry);
    }
  }

  bool Create(const std::string& path, std::uint32_t declared, const std::string& metadata) {
    return declared <= maxEntrySize && Admit({path, metadata, declared, false}) &&
           (list_.front().isPending = true);
  }

  bool Commit(const std::string& path) {
    ModelEntry* entry = Find(path);
    if (entry->metadata.empty()) return false;
    disk[path + kSuffix] = entry->metadata;
    const bool wasPending = entry->isPending;
    entry->isPending = false;
    return wasPending;  // otherwise listed already
  }

  const ModelEntry* Get(const std::string& path) {
    const auto at = Position(path);
    if (at == list_.end() || at->isPending) return nullptr;
    const auto file = disk.find(path + kSuffix);
    at->metadata = file != disk.end() ? file->second : "";
    list_.splice(list_.begin(), list_, at);
    return &list_.front();
  }

  void Remove(const std::string& path) {
    const ModelEntry entry = *Position(path);
    list_.erase(Position(path));
    DeleteFiles(entry);
    total_ -= SizeOf(entry);
  }

  // Each of the three evicts until its limit holds, and tells whether it does.
  bool FitSize(std::uint32_t extra) {
    std::int64_t excess = std::int64_t{static_cast<std::uint32_t>(extra + total_)} - maxSize;
    for (const std::string& path : Evictable()) {
      if (excess <= 0) break;
      excess -= SizeOf(*Find(path));
      Remove(path);
    }
    return excess <= 0;
  }

  bool FitCount(std::uint32_t more) {
    for (const std::string& path : Evictable()) {
      if (list_.size() + more <= maxEntries) break;
      Remove(path);
    }
    return list_.size() + more <= maxEntries;
  }

  void FitEntrySize() {
    for (const std::string& path : Evictable()) {
      if (ContentSize(path) > maxEntrySize) Remove(path);
    }
  }

  ModelEntry* Find(const std::string& path) {
    const auto at = Position(path);
    return at != list_.end() ? &*at : nullptr;
  }

  std::uint32_t ContentSize(const std::string& path) const {
    const auto file = disk.find(path);
    return file != disk.end() ? static_cast<std::uint32_t>(file->second.size()) : 0;
  }

 private:
  std::list<ModelEntry>::iterator Position(const std::string& path) {
    return std::find_if(list_.begin(), list_.end(),
                        [&](const ModelEntry& entry) { return entry.path == path; });
  }

  std::uint32_t SizeOf(const ModelEntry& entry) const {
    return (entry.isPending ? entry.declared : ContentSize(entry.path)) +
           static_cast<std::uint32_t>(entry.metadata.size());
  }

  bool Admit(const ModelEntry& entry) {
    const std::uint32_t size = SizeOf(entry);
    if (Find(entry.path) != nullptr || size > maxEntrySize) return false;
    if (!FitCount(1) || !FitSize(size)) return false;
    total_ += size;
    list_.push_front(entry);
    return true;
  }

  void DeleteFiles(const ModelEntry& entry) {
    if (disk.erase(entry.path) != 0) disk.erase(entry.path + kSuffix);
  }

  // Committed entries, oldest first.
  std::vector<std::string> Evictable() const {
    std::vector<std::string> paths;
    for (auto entry = list_.rbegin(); entry != list_.rend(); ++entry) {
      if (!entry->isPending) paths.push_back(entry->path);
    }
    return paths;
  }

  void Scan(const std::string& name) {
    const std::string path = name.substr(0, name.find(kSuffix));
    if (path == name) return;
    const std::uint32_t content = ContentSize(path);
    const auto pair = static_cast<std::uint32_t>(content + disk[name].size());
    if (content != 0 && pair <= maxEntrySize && list_.size() < maxEntries &&
        total_ + pair <= maxSize) {
      Admit({path, "", content, false});
    } else {
      disk.erase(path);
      disk.erase(name);
    }
  }

  std::list<ModelEntry> list_;  // newest first
  // What admissions added less what removals asked for, never what lies on disk. May wrap.
  std::uint32_t total_ = 0;
};

}  // namespace ox::testing

#endif

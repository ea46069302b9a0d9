#include "tests/support/model.h"

#include <algorithm>

namespace ox::testing {
namespace {

constexpr char kSuffix[] = ".ox_meta";

}  // namespace

void Model::Start(std::uint32_t size, std::uint32_t entries, std::uint32_t entrySize,
                  const std::vector<std::string>& order) {
  maxSize = size;
  maxEntries = entries;
  maxEntrySize = entrySize;
  total_ = 0;
  list_.clear();
  for (const std::string& name : order)
    Scan(name);
}

void Model::Stop() {
  for (const ModelEntry& entry : list_) {
    if (entry.isPending) DeleteFiles(entry);
  }
}

bool Model::Create(const std::string& path, std::uint32_t declared, const std::string& metaData) {
  return declared <= maxEntrySize && Admit({path, metaData, declared, false}) &&
         (list_.front().isPending = true);
}

bool Model::Commit(const std::string& path) {
  ModelEntry* entry = Find(path);
  if (entry->metaData.empty()) return false;
  disk[path + kSuffix] = entry->metaData;
  const bool wasPending = entry->isPending;
  entry->isPending = false;
  return wasPending;  // otherwise listed already
}

const ModelEntry* Model::Get(const std::string& path) {
  const auto at = Position(path);
  if (at == list_.end() || at->isPending) return nullptr;
  const auto file = disk.find(path + kSuffix);
  at->metaData = file != disk.end() ? file->second : "";
  list_.splice(list_.begin(), list_, at);
  return &list_.front();
}

void Model::Remove(const std::string& path) {
  const ModelEntry entry = *Position(path);
  list_.erase(Position(path));
  DeleteFiles(entry);
  total_ -= SizeOf(entry);
}

void Model::FitSize(std::uint32_t extra) {
  std::int64_t excess = std::int64_t{static_cast<std::uint32_t>(extra + total_)} - maxSize;
  for (const std::string& path : Evictable()) {
    if (excess <= 0) break;
    excess -= SizeOf(*Find(path));
    Remove(path);
  }
  fits_ = excess <= 0;
}

void Model::FitCount(std::uint32_t more) {
  for (const std::string& path : Evictable()) {
    if (list_.size() + more <= maxEntries) break;
    Remove(path);
  }
  fits_ = list_.size() + more <= maxEntries;
}

void Model::FitEntrySize() {
  for (const std::string& path : Evictable()) {
    if (ContentSize(path) > maxEntrySize) Remove(path);
  }
}

ModelEntry* Model::Find(const std::string& path) {
  const auto at = Position(path);
  return at != list_.end() ? &*at : nullptr;
}

std::list<ModelEntry>::iterator Model::Position(const std::string& path) {
  return std::find_if(list_.begin(), list_.end(),
                      [&](const ModelEntry& entry) { return entry.path == path; });
}

std::uint32_t Model::ContentSize(const std::string& path) const {
  const auto file = disk.find(path);
  return file != disk.end() ? static_cast<std::uint32_t>(file->second.size()) : 0;
}

std::uint32_t Model::SizeOf(const ModelEntry& entry) const {
  return (entry.isPending ? entry.declared : ContentSize(entry.path)) +
         static_cast<std::uint32_t>(entry.metaData.size());
}

bool Model::Admit(const ModelEntry& entry) {
  if (Find(entry.path) != nullptr) return false;
  const std::uint32_t size = SizeOf(entry);
  if (size > maxEntrySize) return false;
  FitCount(1);
  if (!fits_) return false;
  FitSize(size);
  if (!fits_) return false;
  total_ += size;
  list_.push_front(entry);
  return true;
}

void Model::DeleteFiles(const ModelEntry& entry) {
  if (disk.erase(entry.path) != 0) disk.erase(entry.path + kSuffix);
}

std::vector<std::string> Model::Evictable() const {
  std::vector<std::string> paths;
  for (auto entry = list_.rbegin(); entry != list_.rend(); ++entry) {
    if (!entry->isPending) paths.push_back(entry->path);
  }
  return paths;
}

void Model::Scan(const std::string& name) {
  const std::size_t at = name.find(kSuffix);
  if (at == std::string::npos) return;
  const std::string path = name.substr(0, at);
  if (disk.count(path) == 0) {
    disk.erase(name);
    return;
  }
  const std::uint32_t content = ContentSize(path);
  const auto pair = static_cast<std::uint32_t>(content + disk[name].size());
  if (content == 0 || pair > maxEntrySize || list_.size() >= maxEntries ||
      total_ + pair > maxSize) {
    disk.erase(path);
    disk.erase(name);
    return;
  }
  Admit({path, "", content, false});
}

}  // namespace ox::testing

// Random histories on the module and on a plain model of it: every result, every limit and every
// byte on the disk must agree after every step.
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/support/cache_rig.h"

namespace {

using ox::core::cache::CacheValue;
using ox::testing::CacheRig;
using ox::testing::Utf8;

constexpr char kSuffix[] = ".ox_meta";

struct ModelEntry {
  std::string path;
  std::string metaData;  // as held in memory
  std::uint32_t declared;
  bool isPending;
};

// ASCII only, so that bytes and units are the same.
class Model {
 public:
  std::map<std::string, std::string> disk;
  std::uint32_t maxSize = 0;
  std::uint32_t maxEntries = 0;
  std::uint32_t maxEntrySize = 0;

  void Start(std::uint32_t size, std::uint32_t entries, std::uint32_t entrySize,
             const std::vector<std::string>& order) {
    maxSize = size;
    maxEntries = entries;
    maxEntrySize = entrySize;
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

  bool Create(const std::string& path, std::uint32_t declared, const std::string& metaData) {
    return declared <= maxEntrySize && Admit({path, metaData, declared, false}) &&
           (list_.front().isPending = true);
  }

  bool Commit(const std::string& path) {
    ModelEntry* entry = Find(path);
    if (entry->metaData.empty()) return false;
    disk[path + kSuffix] = entry->metaData;
    const bool wasPending = entry->isPending;
    entry->isPending = false;
    return wasPending;  // otherwise listed already
  }

  const ModelEntry* Get(const std::string& path) {
    const auto at = Position(path);
    if (at == list_.end() || at->isPending) return nullptr;
    const auto file = disk.find(path + kSuffix);
    at->metaData = file != disk.end() ? file->second : "";
    list_.splice(list_.begin(), list_, at);
    return &list_.front();
  }

  void Remove(const std::string& path) {
    const ModelEntry entry = *Position(path);
    list_.erase(Position(path));
    DeleteFiles(entry);
    total_ -= SizeOf(entry);
  }

  void FitSize(std::uint32_t extra) {
    std::int64_t excess = std::int64_t{static_cast<std::uint32_t>(extra + total_)} - maxSize;
    for (const std::string& path : Evictable()) {
      if (excess <= 0) break;
      excess -= SizeOf(*Find(path));
      Remove(path);
    }
    fits_ = excess <= 0;
  }

  void FitCount(std::uint32_t more) {
    for (const std::string& path : Evictable()) {
      if (list_.size() + more <= maxEntries) break;
      Remove(path);
    }
    fits_ = list_.size() + more <= maxEntries;
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

 private:
  std::list<ModelEntry>::iterator Position(const std::string& path) {
    return std::find_if(list_.begin(), list_.end(),
                        [&](const ModelEntry& entry) { return entry.path == path; });
  }

  std::uint32_t ContentSize(const std::string& path) const {
    const auto file = disk.find(path);
    return file != disk.end() ? static_cast<std::uint32_t>(file->second.size()) : 0;
  }

  std::uint32_t SizeOf(const ModelEntry& entry) const {
    return (entry.isPending ? entry.declared : ContentSize(entry.path)) +
           static_cast<std::uint32_t>(entry.metaData.size());
  }

  bool Admit(const ModelEntry& entry) {
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

  std::list<ModelEntry> list_;  // newest first
  std::uint32_t total_ = 0;
  bool fits_ = true;
};

class History {
 public:
  explicit History(unsigned seed) : random_(seed), rig_("") {
    rig_.host.WriteFile("/c/file-cache.conf", "");
    Restart();
  }

  void Step() {
    switch (Pick(12)) {
      case 0:
      case 1:
      case 2:
        Create();
        break;
      case 3:
      case 4:
        WriteContent();
        break;
      case 5:
      case 6:
        Commit();
        break;
      case 7:
      case 8:
        Get();
        break;
      case 9:
        RemoveOrAbandon();
        break;
      case 10:
        SetLimit();
        break;
      default:
        if (Pick(4) == 0) Restart();
        if (Pick(4) == 0) LoseFile();
    }
    auto disk = rig_.host.Disk();
    disk.erase("/c/file-cache.conf");
    ASSERT_EQ(model_.disk, disk);
  }

 private:
  unsigned Pick(unsigned below) { return static_cast<unsigned>(random_() % below); }
  std::string PickUrl() { return "http://host/" + std::to_string(Pick(12)); }

  const std::string& PathOf(const std::string& url) { return paths_[url]; }

  void Create() {
    const std::string url = PickUrl();
    const std::uint32_t declared = Pick(1400);
    const std::string metaData(Pick(5) == 0 ? 0 : Pick(300), 'm');
    CacheValue* value = rig_.Create(url, declared, metaData);
    if (value != nullptr) {
      paths_[url] = Utf8(value->GetFile());
      values_[PathOf(url)] = value;
    }
    // The model learns a path from the module's first entry of that URL; before, nothing can differ
    // but the admission itself.
    const std::string path = PathOf(url).empty() ? "unknown" : PathOf(url);
    ASSERT_EQ(value != nullptr, model_.Create(path, declared, metaData)) << url;
  }

  void WriteContent() {
    const std::string path = PathOf(PickUrl());
    if (path.empty()) return;
    const std::string content(Pick(900), 'c');
    rig_.host.WriteFile(path, content);
    model_.disk[path] = content;
  }

  void Commit() {
    const std::string path = PathOf(PickUrl());
    if (model_.Find(path) == nullptr) return;
    // Lost metadata that is committed again is a case of its own test.
    if (model_.Find(path)->metaData.empty() && !model_.Find(path)->isPending) return;
    ASSERT_EQ(model_.Commit(path), rig_.manager->Add(values_[path]));
  }

  void Get() {
    const std::string url = PickUrl();
    CacheValue* value = rig_.Get(url);
    const ModelEntry* expected = model_.Get(PathOf(url));
    ASSERT_EQ(expected != nullptr, value != nullptr);
    if (value == nullptr) return;
    values_[PathOf(url)] = value;
    ASSERT_EQ(expected->metaData, Utf8(value->GetMetaData()));
    ASSERT_EQ(url, Utf8(value->GetURL()));
  }

  void RemoveOrAbandon() {
    const std::string path = PathOf(PickUrl());
    const ModelEntry* entry = model_.Find(path);
    if (entry == nullptr || (!entry->isPending && values_[path] == nullptr)) return;
    if (entry->isPending && Pick(2) == 0) {
      rig_.manager->DestroyCacheValue(values_[path]);
    } else {
      ASSERT_TRUE(rig_.manager->Remove(values_[path]));
    }
    model_.Remove(path);
  }

  void SetLimit() {
    const unsigned which = Pick(6);
    if (which == 0) {
      model_.maxSize = 500 + Pick(4000);
      rig_.manager->SetMaxSize(model_.maxSize);
      model_.FitSize(0);
    } else if (which == 1) {
      model_.maxEntries = Pick(9);
      rig_.manager->SetMaxEntries(model_.maxEntries);
      model_.FitCount(0);
    } else if (which == 2) {
      model_.maxEntrySize = 200 + Pick(1200);
      rig_.manager->SetMaxCacheValueSize(model_.maxEntrySize);
      model_.FitEntrySize();
    }
  }

  void Restart() {
    rig_.Stop();
    model_.Stop();
    const std::uint32_t size = 1024 + Pick(4000);
    const std::uint32_t entries = 3 + Pick(8);
    rig_.host.WriteFile("/c/file-cache.conf", "MAX_CACHE_SIZE=" + std::to_string(size) +
                                                  "\nMAX_CACHE_ENTRIES=" + std::to_string(entries) +
                                                  "\nMAX_CACHE_ENTRY_SIZE=1200\n");
    std::vector<std::string> order;
    for (const auto& file : rig_.host.files) {
      if (model_.disk.count(file.path) != 0) order.push_back(file.path);
    }
    values_.clear();
    ASSERT_TRUE(rig_.Start());
    model_.Start(size, entries, 1200, order);
    rig_.host.TakeLog();
  }

  void LoseFile() {
    std::string path = PathOf(PickUrl());
    if (Pick(2) == 0) path += kSuffix;
    rig_.host.DeleteFile(path);
    model_.disk.erase(path);
  }

  std::mt19937 random_;
  CacheRig rig_;
  Model model_;
  std::map<std::string, std::string> paths_;
  std::map<std::string, CacheValue*>
      values_;  // null or stale after eviction: asked only via the model
};

TEST(Model, RandomHistoriesAgree) {
  constexpr int kHistories = 40;
  constexpr int kSteps = 1000;
  for (unsigned seed = 1; seed <= kHistories; ++seed) {
    History history(seed);
    for (int step = 0; step < kSteps; ++step) {
      history.Step();
      ASSERT_FALSE(HasFatalFailure()) << "seed " << seed << ", step " << step;
    }
  }
}

}  // namespace

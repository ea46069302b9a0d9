// One history on the module and on the model: every result, every limit and every byte on the disk
// must agree after every step. What happens next is picked from outside: at random, or by a fuzzer.
#ifndef OX_TESTS_SUPPORT_MODEL_HISTORY_H_
#define OX_TESTS_SUPPORT_MODEL_HISTORY_H_

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "tests/support/cache_rig.h"
#include "tests/support/model.h"

namespace ox::testing {

class ModelHistory {
 public:
  // A number from 0 to one below its argument.
  using Picker = std::function<unsigned(unsigned)>;

  explicit ModelHistory(Picker picker) : pick_(std::move(picker)), rig_("") {
    rig_.host.WriteFile(kConfiguration, "MAX_CACHE_ENTRIES=1\n");
    rig_.Start();
    for (unsigned i = 0; i < kUrls; ++i) {
      auto* value = rig_.Create(UrlOf(i), 0, "m");
      paths_[UrlOf(i)] = Utf8(value->GetFile());
      rig_.manager->DestroyCacheValue(value);
    }
    Restart();
  }

  void Step() {
    using H = ModelHistory;
    static constexpr void (H::*kSteps[])() = {
        &H::Create,       &H::Create,          &H::Create,   &H::WriteContent,
        &H::WriteContent, &H::Commit,          &H::Commit,   &H::Get,
        &H::Get,          &H::RemoveOrAbandon, &H::SetLimit, &H::LoseSomething};
    (this->*kSteps[Pick(std::size(kSteps))])();
    auto disk = rig_.host.Disk();
    disk.erase(kConfiguration);
    ASSERT_EQ(model_.disk, disk);
  }

 private:
  static constexpr char kConfiguration[] = "/c/file-cache.conf";
  static constexpr unsigned kUrls = 12;

  unsigned Pick(std::size_t below) { return pick_(static_cast<unsigned>(below)); }
  static std::string UrlOf(unsigned number) { return "http://host/" + std::to_string(number); }
  std::string PickUrl() { return UrlOf(Pick(kUrls)); }
  std::string PickPath() { return paths_[PickUrl()]; }

  void Create() {
    const std::string url = PickUrl();
    const std::uint32_t declared = Pick(1400);
    const std::string metadata(Pick(5) == 0 ? 0 : Pick(300), 'm');
    auto* value = rig_.Create(url, declared, metadata);
    if (value != nullptr) values_[paths_[url]] = value;
    ASSERT_EQ(value != nullptr, model_.Create(paths_[url], declared, metadata)) << url;
  }

  void WriteContent() {
    const std::string path = PickPath();
    model_.disk[path] = std::string(Pick(900), 'c');
    rig_.host.WriteFile(path, model_.disk[path]);
  }

  void Commit() {
    const std::string path = PickPath();
    const ModelEntry* entry = model_.Find(path);
    // Lost metadata that is committed again is a case of its own test.
    if (entry == nullptr || (entry->metadata.empty() && !entry->isPending)) return;
    ASSERT_EQ(model_.Commit(path), rig_.manager->Add(values_[path]));
  }

  void Get() {
    const std::string url = PickUrl();
    auto* value = rig_.Get(url);
    const ModelEntry* expected = model_.Get(paths_[url]);
    ASSERT_EQ(expected != nullptr, value != nullptr);
    if (value == nullptr) return;
    values_[paths_[url]] = value;
    ASSERT_EQ(expected->metadata, Utf8(value->GetMetaData()));
    ASSERT_EQ(url, Utf8(value->GetURL()));
    ASSERT_EQ(model_.ContentSize(paths_[url]), value->GetSize());
  }

  void RemoveOrAbandon() {
    const std::string path = PickPath();
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
      rig_.manager->SetMaxSize(model_.maxSize = 500 + Pick(4000));
      model_.FitSize(0);
    } else if (which == 1) {
      rig_.manager->SetMaxEntries(model_.maxEntries = Pick(9));
      model_.FitCount(0);
    } else if (which == 2) {
      rig_.manager->SetMaxCacheValueSize(model_.maxEntrySize = 200 + Pick(1200));
      model_.FitEntrySize();
    }
  }

  void LoseSomething() {
    if (Pick(4) == 0) Restart();
    if (Pick(4) != 0) return;
    const std::string path = PickPath() + (Pick(2) == 0 ? Model::kSuffix : "");
    rig_.host.DeleteFile(path);
    model_.disk.erase(path);
  }

  void Restart() {
    rig_.Stop();
    model_.Stop();
    model_.maxSize = 1024 + Pick(4000);
    model_.maxEntries = 3 + Pick(8);
    model_.maxEntrySize = 1200;
    rig_.host.WriteFile(kConfiguration,
                        "MAX_CACHE_SIZE=" + std::to_string(model_.maxSize) +
                            "\nMAX_CACHE_ENTRIES=" + std::to_string(model_.maxEntries) +
                            "\nMAX_CACHE_ENTRY_SIZE=1200\n");
    std::vector<std::string> order;
    for (const auto& file : rig_.host.files) {
      if (model_.disk.count(file.path) != 0) order.push_back(file.path);
    }
    values_.clear();
    ASSERT_TRUE(rig_.Start());
    model_.Start(order);
    rig_.host.TakeLog();
  }

  Picker pick_;
  CacheRig rig_;
  Model model_;
  std::map<std::string, std::string> paths_;
  // Null or stale after eviction: asked only via the model.
  std::map<std::string, core::cache::CacheValue*> values_;
};

}  // namespace ox::testing

#endif

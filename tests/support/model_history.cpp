#include "tests/support/model_history.h"

#include <gtest/gtest.h>

#include <utility>

namespace ox::testing {

using core::cache::CacheValue;

namespace {

constexpr char kConfiguration[] = "/c/file-cache.conf";
constexpr char kSuffix[] = ".ox_meta";
constexpr unsigned kUrls = 12;

std::string UrlOf(unsigned number) {
  return "http://host/" + std::to_string(number);
}

}  // namespace

ModelHistory::ModelHistory(Picker picker) : picker_(std::move(picker)), rig_("") {
  rig_.host.WriteFile(kConfiguration, "MAX_CACHE_ENTRIES=1\n");
  rig_.Start();
  for (unsigned i = 0; i < kUrls; ++i) {
    CacheValue* value = rig_.Create(UrlOf(i), 0, "m");
    paths_[UrlOf(i)] = Utf8(value->GetFile());
    rig_.manager->DestroyCacheValue(value);
  }
  Restart();
}

std::string ModelHistory::PickUrl() {
  return UrlOf(Pick(kUrls));
}

std::map<std::string, std::string> ModelHistory::Disk() const {
  auto disk = rig_.host.Disk();
  disk.erase(kConfiguration);
  return disk;
}

void ModelHistory::Step() {
  using H = ModelHistory;
  static constexpr void (H::*kSteps[])() = {
      &H::Create, &H::Create, &H::Create, &H::WriteContent,    &H::WriteContent, &H::Commit,
      &H::Commit, &H::Get,    &H::Get,    &H::RemoveOrAbandon, &H::SetLimit,     &H::LoseSomething};
  (this->*kSteps[Pick(std::size(kSteps))])();
  ASSERT_EQ(model_.disk, Disk());
}

void ModelHistory::Create() {
  const std::string url = PickUrl();
  const std::uint32_t declared = Pick(1400);
  const std::string metaData(Pick(5) == 0 ? 0 : Pick(300), 'm');
  CacheValue* value = rig_.Create(url, declared, metaData);
  if (value != nullptr) values_[PathOf(url)] = value;
  ASSERT_EQ(value != nullptr, model_.Create(PathOf(url), declared, metaData)) << url;
}

void ModelHistory::WriteContent() {
  const std::string path = PathOf(PickUrl());
  const std::string content(Pick(900), 'c');
  rig_.host.WriteFile(path, content);
  model_.disk[path] = content;
}

void ModelHistory::Commit() {
  const std::string path = PathOf(PickUrl());
  if (model_.Find(path) == nullptr) return;
  // Lost metadata that is committed again is a case of its own test.
  if (model_.Find(path)->metaData.empty() && !model_.Find(path)->isPending) return;
  ASSERT_EQ(model_.Commit(path), rig_.manager->Add(values_[path]));
}

void ModelHistory::Get() {
  const std::string url = PickUrl();
  CacheValue* value = rig_.Get(url);
  const ModelEntry* expected = model_.Get(PathOf(url));
  ASSERT_EQ(expected != nullptr, value != nullptr);
  if (value == nullptr) return;
  values_[PathOf(url)] = value;
  ASSERT_EQ(expected->metaData, Utf8(value->GetMetaData()));
  ASSERT_EQ(url, Utf8(value->GetURL()));
  ASSERT_EQ(model_.ContentSize(PathOf(url)), value->GetSize());
}

void ModelHistory::RemoveOrAbandon() {
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

void ModelHistory::SetLimit() {
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

void ModelHistory::Restart() {
  rig_.Stop();
  model_.Stop();
  const std::uint32_t size = 1024 + Pick(4000);
  const std::uint32_t entries = 3 + Pick(8);
  rig_.host.WriteFile(kConfiguration, "MAX_CACHE_SIZE=" + std::to_string(size) +
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

void ModelHistory::LoseSomething() {
  if (Pick(4) == 0) Restart();
  if (Pick(4) != 0) return;
  std::string path = PathOf(PickUrl());
  if (Pick(2) == 0) path += kSuffix;
  rig_.host.DeleteFile(path);
  model_.disk.erase(path);
}

}  // namespace ox::testing

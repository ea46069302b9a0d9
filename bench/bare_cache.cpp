// Our module through its bare interface: in the Linux host, and in a host that shares no calls.
#include <cstring>
#include <deque>
#include <stdexcept>

#include "bench/contender.h"
#include "bench/files.h"
#include "bench/plain_file_system.h"
#include <oxfilecache/host.h>
#include <oxfilecache/string.h>

namespace ox::bench {
namespace {

using core::cache::CacheValue;

class BareCache final : public Contender {
 public:
  BareCache(const Setting& setting, bool isPlain)
      : kernel_(setting.directory), plainFiles_(setting.directory) {
    if (isPlain) kernel_.UseFileSystem(&plainFiles_);
    WriteConfiguration(setting.directory, setting.entries);
    IOxKernel* kernel = &kernel_;
    if (setting.countsKernel) kernel = &counting_.emplace(kernel_);
    std::string error;
    module_ = host::LoadedModule::Load(OX_MODULE_PATH, *kernel, &error);
    if (module_ == nullptr) throw std::runtime_error(error);
  }

  void Open() override {
    manager_ = std::make_unique<host::ManagerReference>(*module_);
    if (!*manager_) throw std::runtime_error("out of memory");
  }

  void Close() override { manager_.reset(); }

  // Strings as a host has them that was asked for a URL: decoded, not looked up yet.
  void Prepare(std::vector<std::string> urls) override {
    texts_.clear();
    for (const std::string& url : urls)
      texts_.emplace_back(url.c_str());
    Contender::Prepare(std::move(urls));
  }

  void Store(std::size_t index, std::string_view content, const std::string& metadata) override {
    CacheValue* value = Manager().CreateCacheValue(texts_[index], content.size(), metadata.c_str());
    if (value == nullptr) throw std::runtime_error("an entry was refused");
    WriteFile(value->GetFile().UTF8(), content);
    if (!Manager().Add(value)) throw std::runtime_error("an entry was not committed");
  }

  bool Fetch(std::size_t index, Want want, Fetched* out) override {
    if (want == Want::kLookup) return Manager().Get(texts_[index]) != nullptr;
    CacheValue* value = Manager().Get(Url(index).c_str());
    if (value == nullptr) return false;
    const OxString metadata = value->GetMetaData();
    out->metadataBytes = metadata.Length();
    std::memcpy(out->metadata, metadata.UTF8(), out->metadataBytes + 1);
    if (want != Want::kContent) return true;
    out->contentBytes = ReadFile(value->GetFile().UTF8(), out->content.data(), out->content.size());
    return true;
  }

  void Remove(std::size_t index) override {
    if (!Manager().Remove(Manager().Get(texts_[index])))
      throw std::runtime_error("an entry was not removed");
  }

  std::optional<KernelCounts> Counts() const override {
    if (!counting_) return std::nullopt;
    return counting_->Counts();
  }

 private:
  core::cache::FileCacheManager& Manager() { return **manager_; }

  host::PosixKernel kernel_;
  std::optional<CountingKernel> counting_;
  PlainFileSystem plainFiles_;
  std::unique_ptr<host::LoadedModule> module_;
  std::unique_ptr<host::ManagerReference> manager_;
  std::deque<OxString> texts_;
};

const Registration kLinuxHost("linux-host", [](const Setting& setting) {
  return std::make_unique<BareCache>(setting, false);
});
const Registration kPlainHost("plain-host", [](const Setting& setting) {
  return std::make_unique<BareCache>(setting, true);
});

}  // namespace
}  // namespace ox::bench

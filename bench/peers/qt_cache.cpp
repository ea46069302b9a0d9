// Qt's QNetworkDiskCache: the same job, a file for each URL.
//
// Less than ours: no order of use, what was written longest ago goes first; no limit of the number
// of entries, so it gets one of bytes. It cuts itself to 90 % of that at each start and whenever it
// is full, so the limit is wide enough for all entries to outlive a start. Its user has QUrls,
// which are made outside of the measured time.
#include <QBuffer>
#include <QNetworkDiskCache>
#include <QUrl>
#include <cstring>
#include <stdexcept>

#include "bench/contender.h"

namespace ox::bench {
namespace {

// Of an entry's file beside content and metadata: what Qt puts in front of them.
constexpr std::size_t kFileOverhead = 140;
const char kHeader[] = "X-Metadata";

class QtCache final : public Contender {
 public:
  explicit QtCache(const Setting& setting)
      : directory_(QString::fromStdString(setting.directory)),
        maxBytes_(static_cast<qint64>(setting.entries *
                                      (setting.contentBytes + kMetadataBytes + kFileOverhead) *
                                      115 / 100)) {}

  void Open() override {
    cache_ = std::make_unique<QNetworkDiskCache>();
    cache_->setCacheDirectory(directory_);
    cache_->setMaximumCacheSize(maxBytes_);
  }

  void Close() override { cache_.reset(); }

  void Prepare(std::vector<std::string> urls) override {
    urls_.clear();
    for (const std::string& url : urls)
      urls_.emplace_back(QString::fromStdString(url));
  }

  void Store(std::size_t index, std::string_view content, const std::string& metadata) override {
    QNetworkCacheMetaData description;
    description.setUrl(urls_[index]);
    description.setSaveToDisk(true);
    description.setRawHeaders({{kHeader, QByteArray::fromStdString(metadata)}});
    QIODevice* device = cache_->prepare(description);
    if (device == nullptr) throw std::runtime_error("an entry was refused");
    device->write(content.data(), static_cast<qint64>(content.size()));
    cache_->insert(device);
  }

  bool Fetch(std::size_t index, Want want, Fetched* out) override {
    const QNetworkCacheMetaData description = cache_->metaData(urls_[index]);
    if (!description.isValid()) return false;
    for (const auto& header : description.rawHeaders()) {
      if (header.first != kHeader) continue;
      out->metadataBytes = static_cast<std::size_t>(header.second.size());
      std::memcpy(out->metadata, header.second.constData(), out->metadataBytes);
    }
    if (want != Want::kContent) return true;
    const std::unique_ptr<QIODevice> device(cache_->data(urls_[index]));
    if (device == nullptr) return false;
    out->contentBytes = static_cast<std::size_t>(
        device->read(out->content.data(), static_cast<qint64>(out->content.size())));
    return true;
  }

  void Remove(std::size_t index) override {
    if (!cache_->remove(urls_[index])) throw std::runtime_error("an entry was not removed");
  }

 private:
  QString directory_;
  qint64 maxBytes_;
  std::unique_ptr<QNetworkDiskCache> cache_;
  std::vector<QUrl> urls_;
};

const Registration kQt("qt",
                       [](const Setting& setting) { return std::make_unique<QtCache>(setting); });

}  // namespace
}  // namespace ox::bench

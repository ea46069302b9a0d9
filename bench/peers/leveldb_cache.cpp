// LevelDB as a cache: two records for each URL, nothing synced.
//
// Less than ours: no order of use, and no bound, so a churn only grows it.
#include <leveldb/db.h>
#include <leveldb/write_batch.h>

#include <cstring>
#include <stdexcept>

#include "bench/contender.h"

namespace ox::bench {
namespace {

void Check(const leveldb::Status& status) {
  if (!status.ok()) throw std::runtime_error(status.ToString());
}

leveldb::Slice Slice(std::string_view text) {
  return {text.data(), text.size()};
}

class LevelDbCache final : public Contender {
 public:
  explicit LevelDbCache(const Setting& setting) : directory_(setting.directory + "/leveldb") {}

  void Open() override {
    leveldb::Options options;
    options.create_if_missing = true;
    leveldb::DB* database = nullptr;
    Check(leveldb::DB::Open(options, directory_, &database));
    database_.reset(database);
  }

  void Close() override { database_.reset(); }

  void Store(std::size_t index, std::string_view content, const std::string& metadata) override {
    leveldb::WriteBatch batch;
    batch.Put(ContentKey(index), Slice(content));
    batch.Put(MetadataKey(index), Slice(metadata));
    Check(database_->Write(leveldb::WriteOptions(), &batch));
  }

  bool Fetch(std::size_t index, Want want, Fetched* out) override {
    const leveldb::Status status =
        database_->Get(leveldb::ReadOptions(), MetadataKey(index), &value_);
    if (status.IsNotFound()) return false;
    Check(status);
    out->metadataBytes = value_.size();
    std::memcpy(out->metadata, value_.data(), value_.size());
    if (want != Want::kContent) return true;
    Check(database_->Get(leveldb::ReadOptions(), ContentKey(index), &value_));
    out->contentBytes = value_.size();
    std::memcpy(out->content.data(), value_.data(), value_.size());
    return true;
  }

  void Remove(std::size_t index) override {
    leveldb::WriteBatch batch;
    batch.Delete(ContentKey(index));
    batch.Delete(MetadataKey(index));
    Check(database_->Write(leveldb::WriteOptions(), &batch));
  }

 private:
  std::string MetadataKey(std::size_t index) const { return "m" + Url(index); }
  std::string ContentKey(std::size_t index) const { return "c" + Url(index); }

  std::string directory_;
  std::unique_ptr<leveldb::DB> database_;
  std::string value_;
};

const Registration kLevelDb("leveldb", [](const Setting& setting) {
  return std::make_unique<LevelDbCache>(setting);
});

}  // namespace
}  // namespace ox::bench

// LMDB as a cache: three tables in one environment, URL to time of use and metadata, URL to
// content, time of use to URL. Without "recency" a hit is one read transaction.
//
// More than ours: transactions, and several processes at once. Opened with MDB_NOSYNC, since ours
// does not sync either. Found values are copied out: in place they are good only until the
// transaction ends.
#include <lmdb.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "bench/contender.h"

namespace ox::bench {
namespace {

constexpr std::size_t kMapBytes = std::size_t{1} << 30;

void Check(int result) {
  if (result != MDB_SUCCESS) throw std::runtime_error(mdb_strerror(result));
}

MDB_val Value(const void* data, std::size_t bytes) {
  return {bytes, const_cast<void*>(data)};
}

MDB_val Value(std::string_view text) {
  return Value(text.data(), text.size());
}

// Aborted unless committed.
class Transaction {
 public:
  Transaction(MDB_env* environment, unsigned flags) {
    Check(mdb_txn_begin(environment, nullptr, flags, &transaction_));
  }
  ~Transaction() {
    if (transaction_ != nullptr) mdb_txn_abort(transaction_);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void Commit() { Check(mdb_txn_commit(std::exchange(transaction_, nullptr))); }
  MDB_txn* Get() const { return transaction_; }

 private:
  MDB_txn* transaction_ = nullptr;
};

class LmdbCache final : public Contender {
 public:
  LmdbCache(const Setting& setting, bool keepsRecency)
      : directory_(setting.directory), entries_(setting.entries), keepsRecency_(keepsRecency) {}
  ~LmdbCache() override { LmdbCache::Close(); }

  void Open() override {
    Check(mdb_env_create(&environment_));
    Check(mdb_env_set_mapsize(environment_, kMapBytes));
    Check(mdb_env_set_maxdbs(environment_, 3));
    Check(mdb_env_open(environment_, directory_.c_str(), MDB_NOSYNC, 0600));
    Transaction transaction(environment_, 0);
    Check(mdb_dbi_open(transaction.Get(), "entries", MDB_CREATE, &metadata_));
    Check(mdb_dbi_open(transaction.Get(), "content", MDB_CREATE, &content_));
    Check(mdb_dbi_open(transaction.Get(), "by use", MDB_CREATE | MDB_INTEGERKEY, &order_));
    clock_ = Last(transaction);
    transaction.Commit();
  }

  void Close() override {
    if (environment_ != nullptr) mdb_env_close(environment_);
    environment_ = nullptr;
  }

  void Store(std::size_t index, std::string_view content, const std::string& metadata) override {
    Transaction transaction(environment_, 0);
    Put(transaction, content_, Value(Url(index)), Value(content));
    PutEntry(transaction, Value(Url(index)), metadata);
    MDB_stat status;
    Check(mdb_stat(transaction.Get(), metadata_, &status));
    if (status.ms_entries > entries_) EvictOldest(transaction);
    transaction.Commit();
  }

  bool Fetch(std::size_t index, Want want, Fetched* out) override {
    Transaction transaction(environment_, keepsRecency_ ? 0 : MDB_RDONLY);
    MDB_val found;
    if (!Find(transaction, metadata_, Url(index), &found)) return false;
    std::uint64_t used;
    std::memcpy(&used, found.mv_data, sizeof used);
    out->metadataBytes = found.mv_size - sizeof used;
    std::memcpy(out->metadata, static_cast<char*>(found.mv_data) + sizeof used, out->metadataBytes);
    if (want == Want::kContent) {
      if (!Find(transaction, content_, Url(index), &found)) return false;
      out->contentBytes = found.mv_size;
      std::memcpy(out->content.data(), found.mv_data, found.mv_size);
    }
    if (!keepsRecency_) return true;
    Delete(transaction, order_, Value(&used, sizeof used));
    PutEntry(transaction, Value(Url(index)), std::string_view(out->metadata, out->metadataBytes));
    transaction.Commit();
    return true;
  }

  void Remove(std::size_t index) override {
    Transaction transaction(environment_, 0);
    MDB_val found;
    if (!Find(transaction, metadata_, Url(index), &found))
      throw std::runtime_error("an entry was not removed");
    std::uint64_t used;
    std::memcpy(&used, found.mv_data, sizeof used);
    Delete(transaction, order_, Value(&used, sizeof used));
    DeleteEntry(transaction, Value(Url(index)));
    transaction.Commit();
  }

 private:
  static void Put(const Transaction& transaction, MDB_dbi table, MDB_val key, MDB_val value) {
    Check(mdb_put(transaction.Get(), table, &key, &value, 0));
  }

  static void Delete(const Transaction& transaction, MDB_dbi table, MDB_val key) {
    Check(mdb_del(transaction.Get(), table, &key, nullptr));
  }

  static bool Find(const Transaction& transaction, MDB_dbi table, std::string_view url,
                   MDB_val* found) {
    MDB_val key = Value(url);
    const int result = mdb_get(transaction.Get(), table, &key, found);
    if (result == MDB_NOTFOUND) return false;
    Check(result);
    return true;
  }

  void PutEntry(const Transaction& transaction, MDB_val url, std::string_view metadata) {
    const std::uint64_t used = ++clock_;
    char record[sizeof used + 1024];
    std::memcpy(record, &used, sizeof used);
    std::memcpy(record + sizeof used, metadata.data(), metadata.size());
    Put(transaction, metadata_, url, Value(record, sizeof used + metadata.size()));
    Put(transaction, order_, Value(&used, sizeof used), url);
  }

  void DeleteEntry(const Transaction& transaction, MDB_val url) const {
    Delete(transaction, metadata_, url);
    Delete(transaction, content_, url);
  }

  void EvictOldest(const Transaction& transaction) const {
    MDB_cursor* cursor = nullptr;
    Check(mdb_cursor_open(transaction.Get(), order_, &cursor));
    MDB_val used;
    MDB_val url;
    Check(mdb_cursor_get(cursor, &used, &url, MDB_FIRST));
    // The entry's key is read before the record that holds it goes.
    const std::string name(static_cast<char*>(url.mv_data), url.mv_size);
    Check(mdb_cursor_del(cursor, 0));
    mdb_cursor_close(cursor);
    DeleteEntry(transaction, Value(name));
  }

  std::uint64_t Last(const Transaction& transaction) const {
    MDB_cursor* cursor = nullptr;
    Check(mdb_cursor_open(transaction.Get(), order_, &cursor));
    MDB_val used;
    MDB_val url;
    std::uint64_t last = 0;
    if (mdb_cursor_get(cursor, &used, &url, MDB_LAST) == MDB_SUCCESS)
      std::memcpy(&last, used.mv_data, sizeof last);
    mdb_cursor_close(cursor);
    return last;
  }

  std::string directory_;
  std::size_t entries_;
  bool keepsRecency_;
  MDB_env* environment_ = nullptr;
  MDB_dbi metadata_ = 0;
  MDB_dbi content_ = 0;
  MDB_dbi order_ = 0;
  std::uint64_t clock_ = 0;
};

const Registration kLmdb("lmdb", [](const Setting& setting) {
  return std::make_unique<LmdbCache>(setting, true);
});
const Registration kLmdbReading("lmdb-no-recency", [](const Setting& setting) {
  return std::make_unique<LmdbCache>(setting, false);
});

}  // namespace
}  // namespace ox::bench

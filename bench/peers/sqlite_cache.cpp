// SQLite as a cache: one table, write-ahead log, statements prepared once, the order of use kept in
// an indexed column. Without "recency" a hit does not write.
//
// More than ours: transactions. "synchronous" is NORMAL, as SQLite's own documentation advises for
// a write-ahead log, so a store is not synced and a checkpoint now and then is.
#include <sqlite3.h>

#include <cstring>
#include <stdexcept>

#include "bench/contender.h"

namespace ox::bench {
namespace {

struct Finalize {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

class SqliteCache final : public Contender {
 public:
  SqliteCache(const Setting& setting, bool keepsRecency)
      : path_(setting.directory + "/cache.sqlite"),
        entries_(setting.entries),
        keepsRecency_(keepsRecency) {}
  ~SqliteCache() override { SqliteCache::Close(); }

  void Open() override {
    Check(sqlite3_open(path_.c_str(), &database_));
    Execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;");
    Execute(
        "CREATE TABLE IF NOT EXISTS entries (url TEXT PRIMARY KEY, used INTEGER NOT NULL,"
        " metadata BLOB NOT NULL, content BLOB NOT NULL) WITHOUT ROWID;"
        "CREATE INDEX IF NOT EXISTS by_use ON entries (used);");
    begin_ = Prepared("BEGIN IMMEDIATE");
    commit_ = Prepared("COMMIT");
    store_ = Prepared("INSERT OR REPLACE INTO entries VALUES (?1, ?2, ?3, ?4)");
    metadata_ = Prepared("SELECT metadata FROM entries WHERE url = ?1");
    content_ = Prepared("SELECT metadata, content FROM entries WHERE url = ?1");
    touch_ = Prepared("UPDATE entries SET used = ?2 WHERE url = ?1");
    remove_ = Prepared("DELETE FROM entries WHERE url = ?1");
    evict_ = Prepared(
        "DELETE FROM entries WHERE url IN (SELECT url FROM entries ORDER BY used LIMIT ?1)");
    count_ = Number("SELECT count(*) FROM entries");
    clock_ = static_cast<sqlite3_int64>(Number("SELECT coalesce(max(used), 0) FROM entries"));
  }

  void Close() override {
    for (Statement* statement :
         {&begin_, &commit_, &store_, &metadata_, &content_, &touch_, &remove_, &evict_})
      statement->reset();
    sqlite3_close(database_);
    database_ = nullptr;
  }

  void Store(std::size_t index, std::string_view content, const std::string& metadata) override {
    Run(begin_);
    BindUrl(store_, index);
    sqlite3_bind_int64(store_.get(), 2, ++clock_);
    BindBytes(store_, 3, metadata);
    BindBytes(store_, 4, content);
    Run(store_);
    if (++count_ > entries_) {
      sqlite3_bind_int64(evict_.get(), 1, static_cast<sqlite3_int64>(count_ - entries_));
      Run(evict_);
      count_ = entries_;
    }
    Run(commit_);
  }

  bool Fetch(std::size_t index, Want want, Fetched* out) override {
    if (keepsRecency_) Run(begin_);
    const Statement& select = want == Want::kContent ? content_ : metadata_;
    BindUrl(select, index);
    const bool isThere = sqlite3_step(select.get()) == SQLITE_ROW;
    if (isThere) {
      out->metadataBytes = Column(select, 0, out->metadata);
      if (want == Want::kContent) out->contentBytes = Column(select, 1, out->content.data());
    }
    sqlite3_reset(select.get());
    if (!keepsRecency_) return isThere;
    if (isThere) {
      BindUrl(touch_, index);
      sqlite3_bind_int64(touch_.get(), 2, ++clock_);
      Run(touch_);
    }
    Run(commit_);
    return isThere;
  }

  void Remove(std::size_t index) override {
    BindUrl(remove_, index);
    Run(remove_);
    if (sqlite3_changes(database_) != 1) throw std::runtime_error("an entry was not removed");
    --count_;
  }

 private:
  void Check(int result) const {
    if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(database_));
  }

  void Execute(const char* sql) { Check(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr)); }

  Statement Prepared(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    Check(sqlite3_prepare_v3(database_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
    return Statement(statement);
  }

  std::size_t Number(const char* sql) {
    const Statement statement = Prepared(sql);
    if (sqlite3_step(statement.get()) != SQLITE_ROW) Check(sqlite3_errcode(database_));
    return static_cast<std::size_t>(sqlite3_column_int64(statement.get(), 0));
  }

  void Run(const Statement& statement) const {
    if (sqlite3_step(statement.get()) != SQLITE_DONE)
      throw std::runtime_error(sqlite3_errmsg(database_));
    sqlite3_reset(statement.get());
  }

  static void BindBytes(const Statement& statement, int position, std::string_view bytes) {
    sqlite3_bind_blob(statement.get(), position, bytes.data(), static_cast<int>(bytes.size()),
                      SQLITE_STATIC);
  }

  void BindUrl(const Statement& statement, std::size_t index) const {
    const std::string& url = Url(index);
    sqlite3_bind_text(statement.get(), 1, url.data(), static_cast<int>(url.size()), SQLITE_STATIC);
  }

  static std::size_t Column(const Statement& statement, int column, char* out) {
    const auto bytes = static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), column));
    std::memcpy(out, sqlite3_column_blob(statement.get(), column), bytes);
    return bytes;
  }

  std::string path_;
  std::size_t entries_;
  bool keepsRecency_;
  sqlite3* database_ = nullptr;
  Statement begin_, commit_, store_, metadata_, content_, touch_, remove_, evict_;
  std::size_t count_ = 0;
  sqlite3_int64 clock_ = 0;
};

const Registration kSqlite("sqlite", [](const Setting& setting) {
  return std::make_unique<SqliteCache>(setting, true);
});
const Registration kSqliteReading("sqlite-no-recency", [](const Setting& setting) {
  return std::make_unique<SqliteCache>(setting, false);
});

}  // namespace
}  // namespace ox::bench

// Entries in a database: one table, its log beside it (WAL).
#include <sqlite3.h>

#include <cstdlib>

#include "scripts/device/device.h"
#include "scripts/device/stores.h"

namespace ox::device {
namespace {

class SqliteStore : public EntryStore {
 public:
  SqliteStore(const std::string& directory, bool isSynchronised) {
    Require(sqlite3_open((directory + "/store.sqlite").c_str(), &database_));
    // FULL waits for the medium at each commit, NORMAL only when the log is folded in.
    const std::string synchronous = isSynchronised ? "FULL" : "NORMAL";
    Require(sqlite3_exec(database_,
                         ("PRAGMA journal_mode=WAL; PRAGMA synchronous=" + synchronous +
                          "; CREATE TABLE IF NOT EXISTS entries "
                          "(url TEXT PRIMARY KEY, metadata TEXT, content BLOB);")
                             .c_str(),
                         nullptr, nullptr, nullptr));
  }
  ~SqliteStore() override { sqlite3_close(database_); }

  void Put(const std::string& url, const std::string& content,
           const std::string& metadata) override {
    Statement statement(database_, "INSERT OR REPLACE INTO entries VALUES (?1, ?2, ?3)");
    statement.Bind(1, url);
    statement.Bind(2, metadata);
    sqlite3_bind_blob(statement.Get(), 3, content.data(), static_cast<int>(content.size()),
                      SQLITE_STATIC);
    Require(sqlite3_step(statement.Get()) == SQLITE_DONE ? SQLITE_OK : SQLITE_ERROR);
  }
  bool Get(const std::string& url) override {
    Statement statement(database_, "SELECT metadata, content FROM entries WHERE url = ?1");
    statement.Bind(1, url);
    return sqlite3_step(statement.Get()) == SQLITE_ROW &&
           sqlite3_column_blob(statement.Get(), 1) != nullptr;
  }
  bool Look(const std::string& url) override {
    Statement statement(
        database_,
        "SELECT count(*) FROM entries WHERE EXISTS (SELECT 1 FROM entries WHERE url = ?1)");
    statement.Bind(1, url);
    return sqlite3_step(statement.Get()) == SQLITE_ROW &&
           sqlite3_column_int(statement.Get(), 0) > 0;
  }
  void Renew(const std::string& url, const std::string& metadata) override {
    Statement statement(database_, "UPDATE entries SET metadata = ?2 WHERE url = ?1");
    statement.Bind(1, url);
    statement.Bind(2, metadata);
    Require(sqlite3_step(statement.Get()) == SQLITE_DONE ? SQLITE_OK : SQLITE_ERROR);
  }

 private:
  class Statement {
   public:
    Statement(sqlite3* database, const char* text) {
      sqlite3_prepare_v2(database, text, -1, &statement_, nullptr);
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    void Bind(int column, const std::string& text) {
      sqlite3_bind_text(statement_, column, text.data(), static_cast<int>(text.size()),
                        SQLITE_STATIC);
    }
    sqlite3_stmt* Get() { return statement_; }

   private:
    sqlite3_stmt* statement_ = nullptr;
  };

  void Require(int result) {
    if (result == SQLITE_OK) return;
    Tell(std::string("! ") + sqlite3_errmsg(database_));
    std::exit(1);
  }

  sqlite3* database_ = nullptr;
};

}  // namespace

std::unique_ptr<EntryStore> OpenSqlite(const std::string& directory, bool isSynchronised) {
  return std::make_unique<SqliteStore>(directory, isSynchronised);
}

}  // namespace ox::device

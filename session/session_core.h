// The session itself, by subject: session_core.cpp (opening, restarting), session_room.cpp (the
// bytes on disk), session_commit.cpp (one commit), session_entries.cpp (finding and removing),
// store_writer.cpp (writers).
//
// One mutex guards everything but the writers' own fields; it is held during every call of the
// manager, and let go while content is written and synchronised.
#ifndef OX_SESSION_SESSION_CORE_H_
#define OX_SESSION_SESSION_CORE_H_

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "host/held_directory.h"
#include "session/cache_state.h"
#include "session/file_names.h"
#include "session/module_hold.h"
#include "session/session_file_system.h"
#include "session/staging.h"
#include "session/survey.h"
#include "session/use_clock.h"
#include <oxfilecache/session.h>

namespace ox::session {

// Where the files of a commit go.
struct CommitPaths {
  std::string content;
  std::string commit;  // where the staged metadata waits to become the metadata file
  std::string metaData;
};

// Everything between the session and the module's text throws std::bad_alloc instead of going on
// with a text that lacks a piece and names another entry.
OxString ToOxString(const std::string& text);
std::string ContentPath(core::cache::CacheValue& value);

class SessionCore {
 public:
  using Staging = StoreWriter::Staging;

  static std::unique_ptr<SessionCore> Open(const SessionOptions& options, Error* error);
  SessionCore(const SessionCore&) = delete;
  SessionCore& operator=(const SessionCore&) = delete;

  std::unique_ptr<StoreWriter> Store(const std::string& url, Error* error);
  Error Write(Staging& staging, const void* data, std::size_t bytes);
  Error Commit(Staging& staging, const std::string& metadata);
  void End(Staging& staging);

  std::optional<FetchedEntry> Fetch(const std::string& url, Error* error);
  Error Remove(const std::string& url);
  Error Trim(std::uint64_t* deleted);
  const CacheLimits& Limits() const { return limits_; }
  SessionStatistics Statistics();

 private:
  using Lock = std::unique_lock<std::mutex>;

  explicit SessionCore(const SessionOptions& options);

  // Opening and restarting.
  Error Start();
  Error CheckCacheDirectory() const;
  Error PrepareCacheDirectory();
  Error CheckConfiguration() const;
  Error Restart();
  Error PutInOrder(Survey* survey);
  void TakeStock(const Survey& survey);
  // Every operation's first step: a manager that knows what the directory holds.
  Error Ready();
  bool IsLive(const std::string& id) const;

  // Room. A writer's bytes count from its first Write on. One writer, the first to come, may exceed
  // the limit of the whole cache, all others count within it; so the sum never exceeds it by more
  // than one entry, and a lone writer evicts nothing before it commits.
  Error Charge(Lock& lock, Staging& staging, std::uint64_t bytes);
  bool MakeRoom(std::uint64_t bytes);
  bool WaitForOtherWriters(Lock& lock);
  Error DeletionFailed() const;
  std::uint64_t CountedBytes() const;
  bool EvictOne();
  void Discharge(Staging& staging, std::uint64_t bytes);
  std::string NextId();
  void Attach(Staging& staging);
  void Detach(Staging& staging);

  // One commit.
  Error CheckCommit(const Staging& staging, const std::string& metadata) const;
  Error StageMetaData(Staging& staging, const std::string& metadata, std::int64_t time) const;
  Error Publish(Staging& staging, const OxString& url, const OxString& metadata);
  Error MakeRoomToPublish(const Staging& staging, std::uint64_t replacedBytes, bool isReplacement);
  Error Decide(Staging& staging, const CommitPaths& paths);
  Error CarryOut(const Staging& staging, const CommitPaths& paths,
                 core::cache::CacheValue* pending);
  bool PutInPlace(const Staging& staging, const CommitPaths& paths) const;
  core::cache::CacheValue* Create(const OxString& url, const OxString& metadata);
  void Abandon(core::cache::CacheValue* pending, const OxString& metadata);

  // Finding.
  Error OpenEntry(core::cache::CacheValue* value, FetchedEntry* entry);
  UniqueFd OpenContent(const std::string& path);
  void Touch(const std::string& contentPath, std::int64_t used);

  const SessionOptions options_;
  CacheLimits limits_;
  SessionFileSystem fileSystem_;
  std::unique_ptr<ModuleHold> hold_;
  UniqueFd directoryLock_;
  internal::HeldDirectory contentDirectory_;

  std::mutex mutex_;
  std::condition_variable writerEnded_;
  CacheState state_;
  UseClock clock_;
  IdSource ids_;
  std::vector<Staging*> writers_;
  Staging* firstWriter_ = nullptr;
  std::uint64_t endedWriters_ = 0;
  std::uint64_t starts_ = 0;
  std::uint64_t trimmed_ = 0;
  // Last, so that it is given back before anything that the manager uses.
  std::optional<host::ManagerReference> manager_;
};

// Runs a step that allocates; no exception leaves the host kit.
template <typename Step>
Error WithoutExceptions(Step step) {
  try {
    return step();
  } catch (const std::bad_alloc&) {
    return {ErrorKind::kOutOfMemory, {}, {}, 0};
  }
}

}  // namespace ox::session

#endif

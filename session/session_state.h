// What a session consists of while it is open.
#ifndef OX_SESSION_SESSION_STATE_H_
#define OX_SESSION_SESSION_STATE_H_

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "host/held_directories.h"
#include "host/mutex.h"
#include "session/directory_lock.h"
#include "session/durable_io.h"
#include "session/entry_name.h"
#include "session/journal_order.h"
#include "session/known_entries.h"
#include "session/productions.h"
#include "session/room.h"
#include "session/running_cache.h"
#include "session/seal_blocks.h"
#include "session/session_counts.h"
#include "session/session_names.h"
#include "session/without_exceptions.h"
#include "session/writer_list.h"
#include <oxfilecache/session.h>

namespace ox::internal {

inline FileSync FileSyncOf(session::Durability durability, const std::string& directory) {
  if (durability != session::Durability::kPower) return FileSync::kNone;
  return KeepsOrder(directory) ? FileSync::kWrittenOut : FileSync::kSynchronised;
}

struct SessionState {
  SessionState(session::SessionOptions sessionOptions, session::CacheLimits cacheLimits,
               std::unique_ptr<DirectoryLock> lock, RunningCache::Setup setup)
      : options(std::move(sessionOptions)),
        cacheDirectory(cacheLimits.cacheDirectory),
        directoryLock(std::move(lock)),
        fileSync(FileSyncOf(options.durability, cacheDirectory)),
        limits(std::move(cacheLimits)),
        cache(std::move(setup), limits, writers, *directoryLock),
        room(cache, writers, limits, options.minFree) {
    if (options.onEviction) cache.Evictions().KeepNews(hasEvictionNews);
  }

  // Two equal numbers: no entry's files changed in between.
  std::uint64_t ChangesSoFar() OX_NO_THREAD_SAFETY_ANALYSIS { return cache.Account().Changes(); }

  const session::SessionOptions options;
  const std::string cacheDirectory;
  const std::unique_ptr<DirectoryLock> directoryLock;
  // Before a file comes into place.
  const FileSync fileSync;

  SessionCounts counts;
  Productions productions;
  std::atomic<bool> hasEvictionNews{false};
  // Points to this object itself in a forked child, so that it is never destroyed.
  std::shared_ptr<SessionState> itself;

  // Held during every call of the manager; let go while content is written and synchronised.
  Mutex mutex;
  session::CacheLimits limits OX_GUARDED_BY(mutex);
  WriterList writers OX_GUARDED_BY(mutex);
  RunningCache cache OX_GUARDED_BY(mutex);
  Room room OX_GUARDED_BY(mutex);
  IdSource ids OX_GUARDED_BY(mutex);
  KnownEntries known OX_GUARDED_BY(mutex){ids.Secret()};
  SealBlocks sealBlocks OX_GUARDED_BY(mutex);
  // For opening content, by any thread.
  HeldDirectories contentDirectory;
};

// Runs an operation, a step that returns an Error. In a forked child it is not begun: a thread that
// is not there may hold the mutex.
template <typename Step>
Error Perform(const SessionState& state, Step step) {
  if (Error error = state.directoryLock->CheckHeld()) return error;
  return WithoutExceptions(step);
}

}  // namespace ox::internal

#endif

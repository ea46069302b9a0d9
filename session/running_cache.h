// The module's manager at work on one directory, together with the accounts of what is there and of
// what was deleted.
//
// The manager is restarted whenever the directory is no longer what it takes it for. A restart puts
// the directory in order first, so the manager's scan finds nothing to delete.
//
// Not locked: the session's mutex guards it.
#ifndef OX_SESSION_RUNNING_CACHE_H_
#define OX_SESSION_RUNNING_CACHE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "session/configuration_snapshot.h"
#include "session/directory_lock.h"
#include "session/disk_account.h"
#include "session/eviction_log.h"
#include "session/manager_listener.h"
#include "session/module_hold.h"
#include "session/pending_entry.h"
#include "session/recent_deletions.h"
#include "session/session_file_system.h"
#include "session/shown_files.h"
#include "session/use_clock.h"
#include "session/writer_list.h"
#include <oxfilecache/session.h>
#include <oxfilecache/string.h>

namespace ox::internal {

class RunningCache final : private ManagerListener {
 public:
  // What must be known of the cache before it can run.
  struct Setup {
    std::string directory;  // of the configuration
    AllocationUnit unit;    // of the cache directory
    ConfigurationSnapshot configuration;
    std::unique_ptr<ModuleHold> module;
  };

  // The references must outlive this. No manager runs until the first restart.
  RunningCache(Setup setup, const session::CacheLimits& limits, const WriterList& writers,
               DirectoryLock& lock);
  RunningCache(const RunningCache&) = delete;
  RunningCache& operator=(const RunningCache&) = delete;

  // Every operation's first step: restarts the manager when it does not know what is there. An
  // error when the directory was replaced meanwhile: nothing of it may be touched then.
  Error EnsureCurrent();
  // Finishes interrupted commits, deletes what belongs to no entry and what exceeds the limits, and
  // starts the manager anew. Entries that the old manager lent are gone.
  Error Restart();

  // Of changed limits, which hold from the next restart on.
  void UseConfiguration(ConfigurationSnapshot configuration) {
    shown_.UseConfiguration(std::move(configuration));
  }

  // The committed entry of that URL, null when there is none. Lent until the next operation.
  core::cache::CacheValue* Find(const OxString& url) { return (*manager_)->Get(url); }
  // The same for an entry whose metadata file is about to hold `metadata`: the manager takes that
  // over, and does not read the file.
  core::cache::CacheValue* FindToReplace(const OxString& url, const OxString& metadata);
  // To be called before an entry is changed. Deletes the commit files of this entry, also those
  // that writers other than `own` keep: finished later, they would undo the change.
  Error GiveUpCommitsOf(const OxString& url, const WriterShare* own = nullptr);
  // The same by the name of the content file.
  Error GiveUpCommits(std::string_view name, const WriterShare* own = nullptr);
  // Null inside when the manager refuses.
  PendingEntry Create(const OxString& url, const OxString& metadata);
  void Remove(core::cache::CacheValue* value) { (*manager_)->Remove(value); }

  // Deletes the entry that was used longest ago. False, and the account stale, when that fails.
  bool EvictOne(session::EvictionReason reason = session::EvictionReason::kRoom);
  // The error of an eviction or a removal that failed.
  Error DeletionFailed(const char* detail, const std::string& path) const;

  DiskAccount& Account() { return account_; }
  UseClock& Clock() { return clock_; }
  RecentDeletions& Deletions() { return deletions_; }
  EvictionLog& Evictions() { return evictions_; }
  // How reading the metadata of the entry found last went; forgotten once taken.
  std::optional<MetadataRead> TakeMetadataRead() {
    return std::exchange(metadataRead_, std::nullopt);
  }

  // Of the manager since the first start.
  std::uint64_t Restarts() const { return starts_ - 1; }
  // Files that belonged to no entry and were deleted.
  std::uint64_t Leftovers() const { return leftovers_; }

 private:
  friend class PendingEntry;

  bool MayDelete() const override;
  void NoteContentDeletion(const char* path, const struct stat& status, bool isDeleted,
                           int error) override;
  void NoteMetadataDeletion(const struct stat& status, bool isDeleted, int error) override;
  void NoteMetadataRead(const MetadataRead& read) override { metadataRead_ = read; }
  void NoteOversight() override { account_.MarkStale(); }

  Error PutDirectoryInOrder(struct Survey* survey);
  Error GiveUpWaitingEntry(std::string_view name);
  bool CommitPending(core::cache::CacheValue* value) { return (*manager_)->Add(value); }
  void Abandon(core::cache::CacheValue* value, std::uint64_t metadataLength);

  const session::CacheLimits& limits_;
  const WriterList& writers_;
  DirectoryLock& lock_;
  DiskAccount account_;
  UseClock clock_;
  RecentDeletions deletions_;
  EvictionLog evictions_;
  std::optional<MetadataRead> metadataRead_;
  ShownFiles shown_;
  SessionFileSystem fileSystem_;
  std::unique_ptr<ModuleHold> module_;
  std::uint64_t starts_ = 0;
  std::uint64_t leftovers_ = 0;
  std::vector<std::string> blockedCommits_;  // names of commit files that the last start set aside
  // Names of entries that wait for their content since the last start.
  std::vector<std::string> waitingEntries_;
  // True: restart before the next operation, because a waiting commit may be possible now.
  bool needsRestart_ = false;
  // Last, so that it is given back before anything that the manager uses.
  std::optional<host::ManagerReference> manager_;
};

}  // namespace ox::internal

#endif

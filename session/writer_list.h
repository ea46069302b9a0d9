// Who is writing at the moment, and how many bytes of the disk each may use.
#ifndef OX_SESSION_WRITER_LIST_H_
#define OX_SESSION_WRITER_LIST_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/mutex.h"
#include <oxfilecache/string.h>

namespace ox::internal {

// What one writer has met with on a disk that was full.
struct FullDisk {
  // Evicted for it, whether that gave space back or not.
  std::uint64_t entries = 0;
  std::uint64_t bytes = 0;
  // A step is being tried again: a seal for which there is still no room is left out.
  bool mayLackSeal = false;
};

// One writer's part, which the writer owns. Threads: the writer is used by one thread at a time.
// That thread changes `url`, `bytes`, `user`, `keptPath` and `keptBytes` with the session's mutex
// held and may read them without it; other threads read them with the mutex held.
struct WriterShare {
  WriterShare(std::string newId, OxString newUrl)
      : id(std::move(newId)), url(std::make_unique<const OxString>(std::move(newUrl))) {}

  const std::string id;                 // of the writer's staged files
  std::unique_ptr<const OxString> url;  // of the entry; never null
  std::uint64_t bytes = 0;              // granted and not given back
  std::thread::id user;                 // the thread that wrote last
  FullDisk fullDisk;                    // for the writer's own thread alone
  // The commit file that StoreWriter::KeepAs made, or that a failed commit could not take back, and
  // its bytes of the share; empty: there is none.
  std::string keptPath;
  std::uint64_t keptBytes = 0;
};

// Not locked: the session's mutex guards it.
class WriterList {
 public:
  // Before the writer's files exist: a restart deletes staged files of writers it does not know.
  void Add(WriterShare& share);
  // Wakes the threads that wait for a writer to end.
  void Remove(WriterShare& share);

  bool Contains(const std::string& id) const;
  const std::vector<WriterShare*>& Shares() const { return shares_; }
  // Whether any has a kept commit file.
  bool HaveKept() const;
  std::uint64_t GrantedBytes() const;

  // One writer at a time, the first to ask, may exceed the limit of the whole cache. True when that
  // is this one.
  bool ClaimFirst(const WriterShare& share);
  bool IsFirst(const WriterShare& share) const { return first_ == &share; }
  // 0 when there is no such writer.
  std::uint64_t BytesOfFirst() const { return first_ != nullptr ? first_->bytes : 0; }

  // Waits until any writer has ended. False when none does for long, or when the first writer,
  // which never waits, was last used by the calling thread and so cannot end meanwhile.
  bool WaitForEnd(MutexLock& lock);

 private:
  std::vector<WriterShare*> shares_;
  const WriterShare* first_ = nullptr;
  std::uint64_t ended_ = 0;
  Condition writerEnded_;
};

}  // namespace ox::internal

#endif

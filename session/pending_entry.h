// An entry that the manager has listed and not yet committed. Its URL can be stored again only
// after it was committed or abandoned, so the destructor abandons what was not committed.
#ifndef OX_SESSION_PENDING_ENTRY_H_
#define OX_SESSION_PENDING_ENTRY_H_

#include <cstdint>

#include <oxfilecache/value.h>

namespace ox::internal {

class RunningCache;

class PendingEntry {
 public:
  PendingEntry() = default;
  PendingEntry(RunningCache& cache, core::cache::CacheValue* value, std::uint64_t metadataLength)
      : cache_(&cache), value_(value), metadataLength_(metadataLength) {}
  PendingEntry(const PendingEntry&) = delete;
  PendingEntry& operator=(const PendingEntry&) = delete;
  ~PendingEntry() { Abandon(); }

  explicit operator bool() const { return value_ != nullptr; }
  core::cache::CacheValue& operator*() const { return *value_; }

  // True when the manager has committed the entry; this then holds nothing.
  bool Commit();
  // Takes the entry off the manager's list.
  void Abandon();
  // Leaves the entry to the restart of the manager that this asks for.
  void LeaveToRestart();

 private:
  RunningCache* cache_ = nullptr;
  core::cache::CacheValue* value_ = nullptr;
  std::uint64_t metadataLength_ = 0;
};

}  // namespace ox::internal

#endif

// Entries that a session deletes by itself.
#ifndef OXFILECACHE_EVICTION_H_
#define OXFILECACHE_EVICTION_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace ox::session {

enum class EvictionReason {
  kRoom,     // a store needed its room
  kTrim,     // Trim, or the target of TrimTo
  kAge,      // TrimTo: not used for so long
  kLimits,   // a start or SetLimits found the cache above its limits
  kDamaged,  // a fetch found that it was not what had been committed
};
constexpr std::size_t kEvictionReasons = 5;

// An entry that was evicted. What was removed, cleared or replaced was not.
struct Eviction {
  EvictionReason reason = EvictionReason::kRoom;
  std::string name;                // of the content file, without the directory
  std::string url;                 // empty where it is not known, as in ListedEntry
  std::uint64_t contentBytes = 0;  // 0 where the content was gone already
};

}  // namespace ox::session

#endif

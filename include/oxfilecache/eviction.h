// Entries that a session deletes by itself.
#ifndef OXFILECACHE_EVICTION_H_
#define OXFILECACHE_EVICTION_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace ox::session {

// Why a session evicted an entry. The values are also the places in SessionStatistics::evictions.
enum class EvictionReason {
  kRoom,     // a store needed its room
  kTrim,     // Trim, or the target of TrimTo
  kAge,      // TrimTo: not used for so long
  kLimits,   // a start or SetLimits found the cache above its limits
  kDamaged,  // a fetch found that it was not what had been committed
};
// How many reasons there are.
constexpr std::size_t kEvictionReasons = 5;

// An entry that was evicted, as SessionOptions::onEviction is told it. Entries that the program
// removes, clears or replaces are not evicted. A plain value.
struct Eviction {
  EvictionReason reason = EvictionReason::kRoom;  // why it went
  std::string name;                               // of the content file, without the directory
  std::string url;                                // empty where it is not known, as in ListedEntry
  std::uint64_t contentBytes = 0;  // length of the content; 0 where it was gone already
};

}  // namespace ox::session

#endif

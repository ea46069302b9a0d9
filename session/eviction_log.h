// What was evicted and why: counted, and kept until it can be told to the session's user.
//
// Not locked: the session's mutex guards it.
#ifndef OX_SESSION_EVICTION_LOG_H_
#define OX_SESSION_EVICTION_LOG_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include <oxfilecache/eviction.h>

namespace ox::internal {

class EvictionLog {
 public:
  // From now on evictions are kept to be told, too. The flag, which may be looked at without the
  // mutex, is true while there are any.
  void KeepNews(std::atomic<bool>& hasNews) { hasNews_ = &hasNews; }

  // The content of an entry was deleted, or is about to be; its metadata file is still there.
  // Throws nothing: called from within the module. Where memory runs out the eviction is only
  // counted.
  void Note(session::EvictionReason reason, std::string_view contentPath, std::uint64_t bytes);

  // What the manager deletes until the end of this is evicted for that reason.
  class Cause {
   public:
    Cause(EvictionLog& log, session::EvictionReason reason) : log_(log) { log_.cause_ = reason; }
    ~Cause() { log_.cause_.reset(); }
    Cause(const Cause&) = delete;
    Cause& operator=(const Cause&) = delete;

   private:
    EvictionLog& log_;
  };
  // The manager has deleted the content of an entry. Throws nothing.
  void NoteDeletion(std::string_view contentPath, std::uint64_t bytes);

  std::uint64_t Count(session::EvictionReason reason) const {
    return counts_[static_cast<std::size_t>(reason)];
  }

  // All but the damaged ones.
  std::uint64_t Trimmed() const;

  std::vector<session::Eviction> TakeNews();

 private:
  std::array<std::uint64_t, session::kEvictionReasons> counts_{};
  std::optional<session::EvictionReason> cause_;
  std::vector<session::Eviction> news_;
  std::atomic<bool>* hasNews_ = nullptr;  // null where nobody wants to be told
};

}  // namespace ox::internal

#endif

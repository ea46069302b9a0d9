// What a session has done since it was opened.
#ifndef OX_SESSION_SESSION_COUNTS_H_
#define OX_SESSION_SESSION_COUNTS_H_

#include <atomic>
#include <cstdint>

namespace ox::internal {

// A number that threads may raise without the mutex.
using Count = std::atomic<std::uint64_t>;

struct SessionCounts {
  Count hits{0};
  Count misses{0};
  Count stores{0};
  Count renewals{0};
  Count removed{0};
};

}  // namespace ox::internal

#endif

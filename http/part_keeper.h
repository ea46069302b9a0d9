// Keeps what has arrived of a body, so that a later request can have the rest alone.
#ifndef OX_HTTP_PART_KEEPER_H_
#define OX_HTTP_PART_KEEPER_H_

#include <chrono>
#include <cstdint>
#include <string>

#include "http/body_target.h"
#include "http/stored_answer.h"

namespace ox::internal::http {

class PartKeeper {
 public:
  // For an answer whose body has `wholeBytes`. 0: their number is unknown, or a part would be of no
  // use, so nothing is kept. `keptBytes` of the body are kept already.
  PartKeeper(const std::string& url, const StoredAnswer& answer, std::uint64_t wholeBytes,
             std::uint64_t keptBytes);

  // To be called after each piece. Keeps what has arrived now and then, in case the process ends.
  void NotePiece(BodyTarget& target);
  // To be called when the body broke off: keeps what has arrived.
  void Keep(BodyTarget& target);

 private:
  using Clock = std::chrono::steady_clock;

  bool IsWorthKeeping(const BodyTarget& target) const;

  const std::string partUrl_;
  StoredAnswer answer_;
  const bool mayKeep_;
  bool mayKeepNow_;  // while the body is on its way
  std::uint64_t keptBytes_;
  Clock::time_point kept_ = Clock::now();
};

}  // namespace ox::internal::http

#endif

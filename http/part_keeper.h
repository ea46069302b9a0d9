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
  // Of an answer whose body of `wholeBytes` is on its way; 0 when their number is unknown, or a
  // part is of no use. `keptBytes` are kept already.
  PartKeeper(const std::string& url, const StoredAnswer& answer, std::uint64_t wholeBytes,
             std::uint64_t keptBytes);

  // After each piece: now and then what is there is kept in case the process ends.
  void NotePiece(BodyTarget& target);
  // The body broke off.
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

#include "session/use_clock.h"

#include <algorithm>

namespace ox::internal {
namespace {

std::int64_t Read(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return ToNanoseconds(time);
}

}  // namespace

timespec ToTimespec(std::int64_t nanoseconds) {
  constexpr std::int64_t kSecond = 1000000000;
  std::int64_t rest = nanoseconds % kSecond;
  if (rest < 0) rest += kSecond;
  timespec time{};
  time.tv_sec = static_cast<time_t>((nanoseconds - rest) / kSecond);
  time.tv_nsec = static_cast<long>(rest);
  return time;
}

UseClock::UseClock() : bootTimeOfLast_(Read(CLOCK_BOOTTIME)) {}

std::int64_t UseClock::Next() {
  const std::int64_t bootTime = Read(CLOCK_BOOTTIME);
  const std::int64_t carriedOn = last_ + std::max<std::int64_t>(bootTime - bootTimeOfLast_, 1);
  last_ = std::max(Read(CLOCK_REALTIME), carriedOn);
  bootTimeOfLast_ = bootTime;
  return last_;
}

void UseClock::StayAbove(std::int64_t time) {
  if (time <= last_) return;
  last_ = time;
  bootTimeOfLast_ = Read(CLOCK_BOOTTIME);
}

}  // namespace ox::internal

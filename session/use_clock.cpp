#include "session/use_clock.h"

#include <algorithm>

namespace ox::internal {
namespace {

constexpr std::int64_t kLatest = INT64_MAX / 2;  // in the year 2116

std::int64_t Read(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return ToNanoseconds(time);
}

}  // namespace

std::int64_t ToNanoseconds(const timespec& time) {
  constexpr std::int64_t kSecond = 1000000000;
  constexpr std::int64_t kMostSeconds = INT64_MAX / kSecond - 1;
  const std::int64_t seconds =
      std::min(std::max<std::int64_t>(time.tv_sec, -kMostSeconds), kMostSeconds);
  return seconds * kSecond + time.tv_nsec;
}

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

std::int64_t UseClock::LatestPossible() {
  constexpr std::int64_t kSecond = 1000000000;
  constexpr std::int64_t kDay = 24 * 60 * 60 * kSecond;
  constexpr std::int64_t kYear2037 = 2114380800 * kSecond;
  return std::max(std::min(Read(CLOCK_REALTIME), INT64_MAX - kDay) + kDay, kYear2037);
}

std::int64_t UseClock::Next() {
  const std::int64_t bootTime = Read(CLOCK_BOOTTIME);
  const std::int64_t carriedOn = last_ + std::max<std::int64_t>(bootTime - bootTimeOfLast_, 1);
  // Limits a clock that is set far ahead, so that later times still fit.
  last_ = std::max(std::min(Read(CLOCK_REALTIME), kLatest), carriedOn);
  bootTimeOfLast_ = bootTime;
  return last_;
}

void UseClock::StayAbove(std::int64_t time) {
  if (time <= last_) return;
  last_ = time;
  bootTimeOfLast_ = Read(CLOCK_BOOTTIME);
}

}  // namespace ox::internal

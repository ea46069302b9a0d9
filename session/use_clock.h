// Times of use that only ever grow, whatever is done to the device's clock.
#ifndef OX_SESSION_USE_CLOCK_H_
#define OX_SESSION_USE_CLOCK_H_

#include <cstdint>
#include <ctime>

namespace ox::internal {

// Nanoseconds since 1970.
inline std::int64_t ToNanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}
timespec ToTimespec(std::int64_t nanoseconds);

// Follows the device's clock forwards. When that is set back, the time since boot carries it on, so
// that intervals stay right too. Not thread-safe.
class UseClock {
 public:
  UseClock();

  // Later than every time given so far.
  std::int64_t Next();
  // All times to come are later than `time`.
  void StayAbove(std::int64_t time);

 private:
  std::int64_t last_ = 0;
  std::int64_t bootTimeOfLast_;
};

}  // namespace ox::internal

#endif

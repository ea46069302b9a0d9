// Times of use that only ever grow, whatever is done to the device's clock.
#ifndef OX_SESSION_USE_CLOCK_H_
#define OX_SESSION_USE_CLOCK_H_

#include <cstdint>
#include <ctime>

namespace ox::internal {

// Nanoseconds since 1970; dates before 1678 and after 2262 count as these years.
std::int64_t ToNanoseconds(const timespec& time);
timespec ToTimespec(std::int64_t nanoseconds);

// Follows the device's clock forwards. When that is set back, the time since boot carries it on, so
// that intervals stay right too. Not thread-safe.
class UseClock {
 public:
  UseClock();

  // The latest time that a file can have been used at: a day from now or the start of the year
  // 2037, whichever is later, since a device's clock may start at 1970 until it is set. Of 2038 and
  // later some file systems keep only the limit, after which all times would be alike.
  static std::int64_t LatestPossible();

  // Later than every time given so far.
  std::int64_t Next();
  // All times to come are later than `time`.
  void StayAbove(std::int64_t time);

 private:
  // Never before 3 January 1980: cards keep no earlier day than the first of that year, local time,
  // after which all times would be alike.
  std::int64_t last_ = 315705600000000000;
  std::int64_t bootTimeOfLast_;
};

}  // namespace ox::internal

#endif

// Counts calls and fails the k-th, once or from there on.
//
// A test runs a history for k = 1, 2, ... until the history passes without reaching its fault.
#ifndef OX_TESTS_SUPPORT_FAULT_DRIVER_H_
#define OX_TESTS_SUPPORT_FAULT_DRIVER_H_

#include <atomic>
#include <cstdint>

namespace ox::testing {

class FaultDriver {
 public:
  enum class Mode { kOnce, kFromThereOn };

  void Arm(std::uint64_t call, Mode mode) {
    calls_ = 0;
    failAt_ = call;
    mode_ = mode;
  }
  void Disarm() { failAt_ = 0; }

  // True when this call is to fail.
  bool Next() {
    if (isPaused) return false;
    const std::uint64_t call = ++calls_;
    const std::uint64_t failing = failAt_;
    if (failing == 0) return false;
    return call == failing || (mode_ == Mode::kFromThereOn && call > failing);
  }

  bool WasReached() const { return failAt_ != 0 && calls_ >= failAt_; }
  std::uint64_t Calls() const { return calls_; }

 private:
  friend class FaultPause;
  static inline thread_local bool isPaused = false;

  std::atomic<std::uint64_t> calls_{0};
  std::atomic<std::uint64_t> failAt_{0};
  Mode mode_ = Mode::kOnce;
};

// While it lives nothing fails and nothing is counted: for what a test does on its own account.
class FaultPause {
 public:
  FaultPause() : wasPaused_(FaultDriver::isPaused) { FaultDriver::isPaused = true; }
  ~FaultPause() { FaultDriver::isPaused = wasPaused_; }
  FaultPause(const FaultPause&) = delete;
  FaultPause& operator=(const FaultPause&) = delete;

 private:
  const bool wasPaused_;
};

}  // namespace ox::testing

#endif

// Runs code that may crash or hang in a child process.
#ifndef OX_HOSTCHECK_ISOLATION_H_
#define OX_HOSTCHECK_ISOLATION_H_

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

#include <oxfilecache/host_check.h>

namespace ox::hostcheck::internal {

// Thrown by the code to end with the outcome kSkipped.
class Skipped : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Verdict {
  Outcome outcome;
  std::string detail;
};

// Passed when `body` returns. Failed when it throws, crashes, ends the process or takes longer than
// `timeout`. What the child prints goes to standard error. Throws std::system_error when no child
// can be started.
Verdict RunIsolated(const std::function<void()>& body, std::chrono::milliseconds timeout);

}  // namespace ox::hostcheck::internal

#endif

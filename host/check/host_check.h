// Puts a host through everything that the module expects of it: memory, strings, mutexes, file
// objects, the file system and its enumeration. For makers of a host of their own; see
// docs/host-check.md.
//
// Each check runs in a child process with a time limit and a fresh directory. A host that crashes
// or hangs costs one line of the result, never the caller.
#ifndef OX_HOST_CHECK_HOST_CHECK_H_
#define OX_HOST_CHECK_HOST_CHECK_H_

#include <chrono>
#include <string>
#include <vector>

#include "module/ox_kernel.h"

namespace ox::host {

// Where the checks get the host from. Both operations are called in the child processes only, Get
// once in each, so a host may start threads there. They may throw a std::exception; its text
// becomes the detail of the finding.
class KernelSource {
 public:
  virtual ~KernelSource() = default;

  // A kernel whose default directory is `directory`, an existing directory; null when none can be
  // made.
  virtual IOxKernel* Get(const char* directory) = 0;

  // Gives it back. False when the host has nothing to give it back to.
  virtual bool Release(IOxKernel* kernel) = 0;
};

enum class Outcome {
  kPassed,
  kFailed,
  kSkipped,  // could not be tried here, or builds on a check that did not pass
};

struct Finding {
  std::string name;  // one line, the same in every run
  Outcome outcome;
  std::string detail;  // one line: why it failed or was skipped; empty when it passed

  bool Passed() const { return outcome == Outcome::kPassed; }
};

struct HostCheckOptions {
  // An existing directory on the file system that the cache will use. The checks work in a
  // directory of their own below it and remove that at the end.
  std::string scratchDirectory;
  // For one check. Checks of the mutexes wait half of it for a thread that ought to come back.
  std::chrono::milliseconds timeout{20000};
};

// Runs every check in a fixed order. When no kernel is handed over, that is the only finding.
// Throws std::system_error when the scratch directory cannot be used or no process can be started.
// Call it from a program that has no other thread running: children are made with fork.
std::vector<Finding> CheckHost(KernelSource& source, const HostCheckOptions& options);

}  // namespace ox::host

#endif

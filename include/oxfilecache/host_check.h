// Puts a host through everything that the module expects of it: memory, strings, mutexes, file
// objects, the file system and its enumeration. For makers of a host of their own; see
// docs/host-check.md.
//
// Each check runs in a child process with a time limit and a fresh directory. A host that crashes
// or hangs costs one line of the result, never the caller.
#ifndef OXFILECACHE_HOST_CHECK_H_
#define OXFILECACHE_HOST_CHECK_H_

#include <chrono>
#include <string>
#include <vector>

#include <oxfilecache/kernel.h>

namespace ox::hostcheck {

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

// How one check ended.
enum class Outcome {
  kPassed,
  kFailed,
  kSkipped,  // could not be tried here, or builds on a check that did not pass
};

// One check and its outcome.
struct Finding {
  std::string name;    // one line, the same in every run
  Outcome outcome;     // how it ended
  std::string detail;  // one line: why it failed or was skipped; empty when it passed

  // True for kPassed; false for a check that failed, and for one that was skipped.
  bool Passed() const { return outcome == Outcome::kPassed; }
};

// Where and how long the checks may work.
struct HostCheckOptions {
  // An existing directory on the file system that the cache will use. The checks work in a
  // directory of their own below it and remove that at the end.
  std::string scratchDirectory;
  // For one check. Checks of the mutexes wait half of it for a thread that is expected to return.
  std::chrono::milliseconds timeout{20000};
};

// Runs every check in a fixed order. When no kernel is handed over, that is the only finding.
// Throws std::system_error when the scratch directory cannot be used or no process can be started.
// Call it from a program that has no other thread running: children are made with fork.
std::vector<Finding> CheckHost(KernelSource& source, const HostCheckOptions& options);

}  // namespace ox::hostcheck

// What a shared library exports to have its host checked by oxhostcheck.
extern "C" {

// A kernel whose IFileSystem has `directory`, an existing directory, as its default directory; null
// when none can be made. Called once in each process that loads the library. The text is valid
// during the call only.
__attribute__((visibility("default"))) IOxKernel* OxHostCheck_GetKernel(const char* directory);

// Optional: takes back what OxHostCheck_GetKernel gave.
__attribute__((visibility("default"))) void OxHostCheck_ReleaseKernel(IOxKernel* kernel);
}

#endif

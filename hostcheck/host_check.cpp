#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "hostcheck/check.h"
#include <oxfilecache/host_check.h>

namespace ox::hostcheck {
namespace {

using namespace internal;

// A directory of its own, removed with everything in it.
class ScratchDirectory {
 public:
  // Absolute and without links: a host may go to another directory or tidy up paths.
  explicit ScratchDirectory(const std::string& parent)
      : path_(std::filesystem::canonical(parent) / "hostcheck-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(),
                              "cannot make a directory in " + parent);
    }
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  std::string MakeNext() {
    std::string path = path_ + "/" + std::to_string(++made_);
    std::filesystem::create_directory(path);
    return path;
  }

 private:
  std::string path_;
  int made_ = 0;
};

Checks AllChecks() {
  Checks all;
  for (Checks (*list)() :
       {KernelChecks, KernelMemoryChecks, KernelStringChecks, MutexChecks, FileObjectChecks,
        FileContentChecks, FileSystemChecks, EnumerationChecks}) {
    Checks part = list();
    std::move(part.begin(), part.end(), std::back_inserter(all));
  }
  return all;
}

bool HasPassed(const std::vector<Finding>& findings, const std::string& name) {
  return std::any_of(findings.begin(), findings.end(), [&](const Finding& finding) {
    return finding.name == name && finding.Passed();
  });
}

Finding RunOne(const Check& check, const std::vector<Finding>& earlier, KernelSource& source,
               const std::string& directory, std::chrono::milliseconds timeout) {
  for (const char* needed : check.needs) {
    if (HasPassed(earlier, needed)) continue;
    return {check.name, Outcome::kSkipped, "needs \"" + std::string(needed) + "\""};
  }
  const Verdict verdict = RunIsolated(
      [&] {
        Run run(source, directory, timeout / 2);
        check.run(run);
      },
      timeout);
  return {check.name, verdict.outcome, verdict.detail};
}

}  // namespace

std::vector<Finding> CheckHost(KernelSource& source, const HostCheckOptions& options) {
  ScratchDirectory scratch(options.scratchDirectory);
  std::vector<Finding> findings;
  for (const Check& check : AllChecks()) {
    findings.push_back(RunOne(check, findings, source, scratch.MakeNext(), options.timeout));
    if (!HasPassed(findings, kHandsOverKernel)) break;
  }
  return findings;
}

}  // namespace ox::hostcheck

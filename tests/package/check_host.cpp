// A program that runs the checks itself: check_host DIRECTORY
#include <oxfilecache/host_check.h>

using namespace ox::hostcheck;

class Source final : public KernelSource {
 public:
  IOxKernel* Get(const char* directory) override { return OxHostCheck_GetKernel(directory); }
  bool Release(IOxKernel*) override { return false; }
};

int main(int, char** argv) {
  Source source;
  HostCheckOptions options;
  options.scratchDirectory = argv[1];
  std::size_t passed = 0;
  for (const Finding& finding : CheckHost(source, options)) {
    if (finding.outcome == Outcome::kFailed) return 1;
    if (finding.Passed()) ++passed;
  }
  // Had no kernel been handed over there would be one finding.
  return passed > 10 ? 0 : 1;
}

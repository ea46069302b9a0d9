// oxhostcheck: puts the host of a shared library through what the file cache expects of it.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "hostcheck/library_source.h"
#include "hostcheck/report.h"
#include "hostcheck/standard_descriptors.h"

namespace {

using ox::hostcheck::Finding;
using ox::hostcheck::Outcome;

enum ExitCode { kAllPassed = 0, kCheckFailed = 1, kUsage = 2, kNotLoadable = 3 };

struct Options {
  std::string library;
  std::string directory = "/tmp";
  int seconds = 20;
  bool isJson = false;
};

void Describe(CLI::App& app, Options* options) {
  app.footer(
      "Exit status: 0 no check failed, 1 a check failed, 2 wrong use, 3 the library cannot be "
      "loaded.");
  app.add_option("library", options->library,
                 "Shared library that exports OxHostCheck_GetKernel; a name without a slash is "
                 "looked for as the dynamic linker does")
      ->required();
  app.add_option("--directory", options->directory,
                 "Existing directory to work in, on the file system that the cache will use")
      ->envname("TMPDIR")
      ->check(CLI::ExistingDirectory)
      ->capture_default_str();
  app.add_option("--timeout", options->seconds, "Seconds that one check may take")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
  app.add_flag("--json", options->isJson, "Print the findings as JSON");
}

int RunChecks(const Options& options) {
  const std::chrono::seconds timeout(options.seconds);
  ox::hostcheck::internal::LibrarySource source(options.library);
  const std::string whyNot = source.WhyNotLoadable(timeout);
  if (!whyNot.empty()) {
    std::cerr << "oxhostcheck: " << whyNot << '\n';
    return kNotLoadable;
  }
  const std::vector<Finding> findings =
      ox::hostcheck::CheckHost(source, {options.directory, timeout});
  using namespace ox::hostcheck::internal;
  (options.isJson ? PrintJson : PrintLines)(findings, std::cout);
  if (!std::cout.flush()) throw std::runtime_error("cannot write the findings");
  const bool hasFailed = std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.outcome == Outcome::kFailed;
  });
  return hasFailed ? kCheckFailed : kAllPassed;
}

}  // namespace

int main(int argc, char** argv) {
  ox::hostcheck::OccupyStandardDescriptors();
  CLI::App app("Checks a host of the file cache, one line for each thing that the cache expects");
  app.set_version_flag("--version", OX_VERSION);
  Options options;
  Describe(app, &options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kAllPassed : kUsage;
  }
  try {
    return RunChecks(options);
  } catch (const std::exception& error) {
    std::cerr << "oxhostcheck: " << error.what() << '\n';
    return kUsage;
  }
}

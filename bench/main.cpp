// oxbench: measures one contender against another over the same entries and prints the figures as
// JSON. scripts/bench runs it for each of them and makes the report.
#include <CLI/CLI.hpp>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "bench/contender.h"
#include "bench/operations.h"
#include "bench/paired.h"

namespace {

using namespace ox::bench;
using nlohmann::json;

struct Options {
  std::string subject;
  std::string base = "floor";
  std::string directory;
  std::size_t entries = 200;
  std::size_t contentBytes = 4096;
  std::vector<std::string> operations = OperationNames();
  bool isListing = false;
};

// The base of a miss is the base's hit: there is no cheaper question to a file system that would
// tell as much.
std::string BaseOf(const std::string& operation) {
  return operation == "miss" ? "lookup" : operation;
}

json ToJson(const Times& times) {
  return {{"median_ns", times.median}, {"p99_ns", times.p99}, {"worst_ns", times.worst}};
}

json Measure(const std::string& operation, Bench& base, Bench& subject, const Options& options) {
  const Paired paired = MeasurePaired(base.Make(BaseOf(operation)), subject.Make(operation),
                                      LimitsOf(operation, options.entries));
  return {{"operation", operation},
          {"subject", options.subject},
          {"base", options.base},
          {"entries", options.entries},
          {"content_bytes", options.contentBytes},
          {"rounds", paired.rounds},
          {"block", paired.count},
          {"timed_singly", paired.timed},
          {"base_times", ToJson(paired.base)},
          {"subject_times", ToJson(paired.subject)},
          {"ratio", paired.ratio},
          {"ratio_lowest", paired.lowest},
          {"ratio_highest", paired.highest}};
}

int Run(const Options& options) {
  if (options.isListing) {
    std::cout << json(ContenderNames()) << "\n";
    return 0;
  }
  Bench base(options.base, options.directory + "/base", options.entries, options.contentBytes);
  Bench subject(options.subject, options.directory + "/subject", options.entries,
                options.contentBytes);
  json results = json::array();
  for (const std::string& operation : options.operations)
    results.push_back(Measure(operation, base, subject, options));
  std::cout << results.dump(1) << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Measures one contender against another, block by block.");
  Options options;
  app.add_option("subject", options.subject, "what is measured");
  app.add_option("--base", options.base, "what it is measured against");
  app.add_option("--directory", options.directory, "an existing directory to work in");
  app.add_option("--entries", options.entries);
  app.add_option("--content", options.contentBytes, "bytes");
  app.add_option("--operations", options.operations)->delimiter(',');
  app.add_flag("--list", options.isListing, "print the names of the contenders");
  CLI11_PARSE(app, argc, argv);
  try {
    return Run(options);
  } catch (const std::exception& error) {
    std::cerr << "oxbench: " << options.subject << ": " << error.what() << "\n";
    return 1;
  }
}

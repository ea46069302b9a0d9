// oxbench: measures one contender against another over the same entries and prints the figures as
// JSON. scripts/bench runs it for each of them and makes the report.
#include <malloc.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "bench/contender.h"
#include "bench/counting.h"
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
  bool isCounting = false;
};

// A miss is measured against the floor's hit: the floor has no list that would tell it so without
// a file.
std::string BaseOf(const std::string& operation, const std::string& base) {
  return operation == "miss" && base == "floor" ? "lookup" : operation;
}

json ToJson(const Times& times) {
  return {{"median_ns", times.median},
          {"p99_ns", times.p99},
          {"worst_ns", times.worst},
          {"calm_worst_ns", times.calmWorst}};
}

json ToJson(const Ratio& ratio) {
  return {{"median", ratio.median},
          {"lowest", ratio.lowest},
          {"p10", ratio.p10},
          {"p90", ratio.p90},
          {"highest", ratio.highest}};
}

json Measure(const std::string& operation, Bench& base, Bench& subject, const Options& options) {
  const Paired paired =
      MeasurePaired(base.Make(BaseOf(operation, options.base)), subject.Make(operation),
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
          {"ratio", ToJson(paired.ratio)}};
}

json Count(const std::string& operation, Bench& subject, const Options& options) {
  const std::size_t count =
      std::min<std::size_t>(LimitsOf(operation, options.entries).maxCount, 20);
  const Operation made = subject.Make(operation);
  const auto run = [&] {
    for (std::size_t i = 0; i < count; ++i)
      made.run(i);
  };
  // Once without counting: spare buffers are filled and statements compiled.
  made.prepare(count);
  run();
  made.finish();

  made.prepare(count);
  const auto kernelBefore = subject.Subject().Counts();
  const HeapCounts before = CountedHeap();
  MarkTrace("begin/" + operation + "/" + std::to_string(count));
  CountHeap(true);
  run();
  CountHeap(false);
  MarkTrace("end");
  const HeapCounts after = CountedHeap();
  const auto kernelAfter = subject.Subject().Counts();
  made.finish();

  const auto each = static_cast<double>(count);
  json result = {{"operation", operation},
                 {"subject", options.subject},
                 {"entries", options.entries},
                 {"heap_calls", static_cast<double>(after.calls - before.calls) / each},
                 {"heap_bytes", static_cast<double>(after.bytes - before.bytes) / each}};
  if (kernelBefore && kernelAfter)
    result["kernel_allocations"] =
        static_cast<double>(kernelAfter->allocations - kernelBefore->allocations) / each;
  return result;
}

// Of a filled contender that was started once.
json Memory(Bench& subject, std::size_t heapBefore, const Options& options) {
  // Ours, not the contender's.
  subject.Subject().Prepare({});
  const auto entries = static_cast<double>(options.entries);
  json result = {
      {"operation", "memory"},
      {"subject", options.subject},
      {"entries", options.entries},
      {"heap_bytes_per_entry",
       (static_cast<double>(mallinfo2().uordblks) - static_cast<double>(heapBefore)) / entries}};
  if (const auto counts = subject.Subject().Counts()) {
    result["kernel_bytes_per_entry"] = static_cast<double>(counts->bytes) / entries;
    result["kernel_blocks_per_entry"] = static_cast<double>(counts->blocks) / entries;
  }
  return result;
}

json CountAll(const Options& options) {
  const std::size_t heapBefore = mallinfo2().uordblks;
  Bench subject(options.subject, options.directory, options.entries, options.contentBytes, true);
  json results = {Memory(subject, heapBefore, options)};
  for (const std::string& operation : options.operations)
    results.push_back(Count(operation, subject, options));
  return results;
}

json MeasureAll(const Options& options) {
  Bench base(options.base, options.directory + "/base", options.entries, options.contentBytes);
  Bench subject(options.subject, options.directory + "/subject", options.entries,
                options.contentBytes);
  json results = json::array();
  for (const std::string& operation : options.operations)
    results.push_back(Measure(operation, base, subject, options));
  return results;
}

json Run(const Options& options) {
  if (options.isListing) return ContenderNames();
  return options.isCounting ? CountAll(options) : MeasureAll(options);
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
  app.add_flag("--count", options.isCounting,
               "count allocations, and mark the operations for a trace of system calls");
  app.add_flag("--list", options.isListing, "print the names of the contenders");
  CLI11_PARSE(app, argc, argv);
  try {
    std::cout << Run(options).dump(1) << "\n";
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "oxbench: " << options.subject << ": " << error.what() << "\n";
    return 1;
  }
}

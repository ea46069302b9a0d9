#include <cstdio>
#include <exception>
#include <memory>

#include "hostcheck/standard_descriptors.h"
#include "tools/oxcache/command_line.h"
#include "tools/oxcache/signals.h"

namespace ox::tools {
namespace {

ExitStatus RunProgram(Context& context, const Parsed& parsed, const Invocation& invocation) {
  if (!parsed.isCommand) {
    if (parsed.status == ExitStatus::kDone) return context.Print(parsed.text);
    context.Tell(parsed.text);
    return parsed.status;
  }
  if (context.Options().directory.empty()) {
    context.Tell("--dir is needed: neither XDG_CACHE_HOME nor a home directory is known");
    return ExitStatus::kUsage;
  }
  return Run(context, invocation);
}

int Main(int argc, char** argv) {
  hostcheck::OccupyStandardDescriptors();
  PrepareForSignals();
  Invocation invocation;
  const Parsed parsed = ParseProgram(argc, argv, &invocation);
  auto context = std::make_unique<Context>(invocation.global);
  const ExitStatus status = RunProgram(*context, parsed, invocation);
  const bool hasLostReader = context->HasLostReader();
  // Closes the session.
  context.reset();
  if (hasLostReader) EndForLostReader();
  return static_cast<int>(status);
}

}  // namespace
}  // namespace ox::tools

int main(int argc, char** argv) {
  try {
    return ox::tools::Main(argc, argv);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "oxcache: %s\n", exception.what());
    return static_cast<int>(ox::tools::ExitStatus::kInputOutput);
  }
}

#include <csignal>
#include <cstdio>
#include <exception>

#include "tools/oxcache/command_line.h"
#include "tools/standard_descriptors.h"

namespace ox::tools {
namespace {

int Main(int argc, char** argv) {
  tools::OccupyStandardDescriptors();
  // A reader that goes away is then an error of the write, and the session is closed properly.
  std::signal(SIGPIPE, SIG_IGN);
  // So is a file that would become larger than the user may make one.
  std::signal(SIGXFSZ, SIG_IGN);
  Invocation invocation;
  const Parsed parsed = ParseProgram(argc, argv, &invocation);
  Context context(invocation.global);
  if (!parsed.isCommand) {
    if (parsed.status == ExitStatus::kDone) {
      return static_cast<int>(context.Print(parsed.text));
    }
    context.Tell(parsed.text);
    return static_cast<int>(parsed.status);
  }
  if (context.Options().directory.empty()) {
    context.Tell("--dir is needed: neither XDG_CACHE_HOME nor a home directory is known");
    return static_cast<int>(ExitStatus::kUsage);
  }
  return static_cast<int>(Run(context, invocation));
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

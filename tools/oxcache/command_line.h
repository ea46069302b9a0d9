// The command line and the lines of a batch. A line has the same commands, without the options that
// apply to the whole run.
#ifndef OX_TOOLS_OXCACHE_COMMAND_LINE_H_
#define OX_TOOLS_OXCACHE_COMMAND_LINE_H_

#include <string>
#include <vector>

#include "tools/oxcache/configuration.h"
#include "tools/oxcache/context.h"
#include "tools/oxcache/entry_commands.h"
#include "tools/oxcache/exit_status.h"
#include "tools/oxcache/fetch.h"

namespace ox::tools {

struct Invocation {
  std::string command;
  GlobalOptions global;
  bool json = false;
  InitOptions init;
  PutOptions put;
  GetOptions get;
  bool metrics = false;
  std::string removeUrl;
  session::TrimTarget trim;
  FetchOptions fetch;
};

// The result of parsing. Without a command the program ends with `status` after showing `text`,
// which is the help or what is wrong.
struct Parsed {
  bool isCommand;
  ExitStatus status;
  std::string text;
};

Parsed ParseProgram(int argc, char** argv, Invocation* invocation);
Parsed ParseLine(std::vector<std::string> words, Invocation* invocation);

// Runs the command of a program or of a line.
ExitStatus Run(Context& context, const Invocation& invocation);

}  // namespace ox::tools

#endif

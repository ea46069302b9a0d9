// Commands on single entries.
#ifndef OX_TOOLS_OXCACHE_ENTRY_COMMANDS_H_
#define OX_TOOLS_OXCACHE_ENTRY_COMMANDS_H_

#include <optional>
#include <string>

#include "tools/oxcache/context.h"

namespace ox::tools {

struct PutOptions {
  std::string url;
  std::string file = "-";
  std::optional<std::string> metadata;
  std::string metadataFile;  // empty: none
};

struct GetOptions {
  std::string url;
  std::string output = "-";
  bool metadata = false;
};

ExitStatus Put(Context& context, const PutOptions& options);
ExitStatus Get(Context& context, const GetOptions& options);
ExitStatus Remove(Context& context, const std::string& url);

}  // namespace ox::tools

#endif

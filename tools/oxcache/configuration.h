// "file-cache.conf" as this tool writes it.
#ifndef OX_TOOLS_OXCACHE_CONFIGURATION_H_
#define OX_TOOLS_OXCACHE_CONFIGURATION_H_

#include <cstdint>
#include <optional>
#include <string>

#include "tools/oxcache/context.h"
#include <oxfilecache/error.h>

namespace ox::tools {

struct InitOptions {
  std::optional<std::uint64_t> maxSize;       // bytes
  std::optional<std::uint64_t> maxEntries;    // number
  std::optional<std::uint64_t> maxEntrySize;  // bytes
  std::string directory;                      // of the entries; empty: beside the configuration
};

std::string ConfigurationPath(const std::string& directory);
bool HasConfiguration(const std::string& directory);

// Makes the directory and puts the default configuration there.
Error WriteDefaultConfiguration(const std::string& directory);

ExitStatus Init(Context& context, const InitOptions& options);

}  // namespace ox::tools

#endif

// The module that an option names, and the cache when none names it.
#ifndef OX_TOOLS_OXCACHE_MODULE_PATH_H_
#define OX_TOOLS_OXCACHE_MODULE_PATH_H_

#include <string>

namespace ox::tools {

// For the loader: a typed name without "/" becomes "./NAME" when the current directory has that
// file.
std::string TypedModulePath(const std::string& typed);

// "oxcache" in the user's cache directory; empty when that is not known.
std::string DefaultDirectory();

}  // namespace ox::tools

#endif

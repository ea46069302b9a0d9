// The module that an option names.
#ifndef OX_TOOLS_OXCACHE_MODULE_PATH_H_
#define OX_TOOLS_OXCACHE_MODULE_PATH_H_

#include <string>

namespace ox::tools {

// For the loader: a typed name without "/" becomes "./NAME" when the current directory has that
// file.
std::string TypedModulePath(const std::string& typed);

}  // namespace ox::tools

#endif

// Where the module and the cache are when no option names them.
#ifndef OX_TOOLS_OXCACHE_MODULE_PATH_H_
#define OX_TOOLS_OXCACHE_MODULE_PATH_H_

#include <string>

namespace ox::tools {

// The module beside the executable, where it is installed with the executable, or in "../lib";
// otherwise its bare name, for the loader to find.
std::string DefaultModulePath();

// For the loader: a typed name without "/" becomes "./NAME" when the current directory has that
// file.
std::string TypedModulePath(const std::string& typed);

// "oxcache" in the user's cache directory; empty when that is not known.
std::string DefaultDirectory();

}  // namespace ox::tools

#endif

// Where things are when nobody says.
#ifndef OX_TOOLS_OXCACHE_MODULE_PATH_H_
#define OX_TOOLS_OXCACHE_MODULE_PATH_H_

#include <string>

namespace ox::tools {

// The module beside the executable, where it is installed with the executable, or in "../lib";
// otherwise its bare name, for the loader to find.
std::string DefaultModulePath();

// A path as a person types it: a name without "/" is a file of this directory when there is one.
std::string TypedModulePath(const std::string& typed);

// "oxcache" in the user's cache directory; empty when that cannot be told.
std::string DefaultDirectory();

}  // namespace ox::tools

#endif

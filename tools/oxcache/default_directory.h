// The cache when no option names it.
#ifndef OX_TOOLS_OXCACHE_DEFAULT_DIRECTORY_H_
#define OX_TOOLS_OXCACHE_DEFAULT_DIRECTORY_H_

#include <string>

namespace ox::tools {

// "oxcache" in the user's cache directory; empty when that is not known.
std::string DefaultDirectory();

}  // namespace ox::tools

#endif

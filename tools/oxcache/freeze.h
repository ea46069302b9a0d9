// The command that prepares a cache for an image.
#ifndef OX_TOOLS_OXCACHE_FREEZE_H_
#define OX_TOOLS_OXCACHE_FREEZE_H_

#include "tools/oxcache/context.h"

namespace ox::tools {

// Keeps the order of use in a file.
ExitStatus Freeze(Context& context);

}  // namespace ox::tools

#endif

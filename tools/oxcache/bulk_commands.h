// Commands that delete many entries.
#ifndef OX_TOOLS_OXCACHE_BULK_COMMANDS_H_
#define OX_TOOLS_OXCACHE_BULK_COMMANDS_H_

#include "tools/oxcache/context.h"

namespace ox::tools {

// Down to a reserve where no target is set.
ExitStatus Trim(Context& context, const session::TrimTarget& target);
ExitStatus Clear(Context& context);

}  // namespace ox::tools

#endif

// "batch": commands from standard input, one a line, in one session.
#ifndef OX_TOOLS_OXCACHE_BATCH_H_
#define OX_TOOLS_OXCACHE_BATCH_H_

#include <optional>
#include <string>
#include <vector>

#include "tools/oxcache/context.h"

namespace ox::tools {

// The words of a line as a POSIX shell quotes them: '...', "..." and \; a word that starts with "#"
// starts a comment. Empty when a quotation is not closed.
std::optional<std::vector<std::string>> SplitWords(const std::string& line);

// Continues after a line that fails. Returns the highest status of all lines.
ExitStatus Batch(Context& context);

}  // namespace ox::tools

#endif

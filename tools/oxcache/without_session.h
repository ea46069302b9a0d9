// Commands that only look do so without the session: in a cache that another process has open, or
// where this user may not write. They say so.
#ifndef OX_TOOLS_OXCACHE_WITHOUT_SESSION_H_
#define OX_TOOLS_OXCACHE_WITHOUT_SESSION_H_

#include <memory>
#include <string>

#include "tools/oxcache/context.h"
#include <oxfilecache/reader.h>

namespace ox::tools {

// Whether an opening that failed with this error leaves reading possible.
bool LeavesReading(const Error& error);

// A reader of the cache; null and an error where there is none.
std::unique_ptr<session::CacheReader> OpenReader(const Context& context, Error* error);

// Tells which process has the cache, or why a session could not be opened here. Nothing when one
// could, as far as can be seen without trying, or when this run has it.
void TellWhyNoSession(const Context& context, const std::string& cacheDirectory);

}  // namespace ox::tools

#endif

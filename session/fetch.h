// Fetching as a step of other operations: what CacheSession::Fetch does, without counting hits and
// misses.
#ifndef OX_SESSION_FETCH_H_
#define OX_SESSION_FETCH_H_

#include <string>

#include "session/session_state.h"

namespace ox::internal {

// Whether that is the error of a fetch that found no entry, or a damaged one.
bool IsMissing(const Error& error);
// Throws std::bad_alloc.
Error FetchEntry(SessionState& state, const std::string& url, session::FetchedEntry* entry);

}  // namespace ox::internal

#endif

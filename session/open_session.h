// Opening a session.
#ifndef OX_SESSION_OPEN_SESSION_H_
#define OX_SESSION_OPEN_SESSION_H_

#include <memory>

#include "session/session_state.h"

namespace ox::internal {

// Everything that a session checks and makes before its first operation. Throws std::bad_alloc.
Error OpenSessionState(session::SessionOptions options, std::shared_ptr<SessionState>* state);

}  // namespace ox::internal

#endif

// The limits as the module reads them.
#ifndef OX_HOST_SESSION_LIMITS_PROBE_H_
#define OX_HOST_SESSION_LIMITS_PROBE_H_

#include "host/module_loader.h"
#include "host/session/cache_session.h"
#include "host/session/session_file_system.h"

namespace ox::host {

// Starts the manager once over a file system that is still probing.
Error ProbeLimits(LoadedModule& module, const SessionFileSystem& fileSystem, CacheLimits* limits);

}  // namespace ox::host

#endif

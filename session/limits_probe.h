// The limits as the module reads them.
#ifndef OX_SESSION_LIMITS_PROBE_H_
#define OX_SESSION_LIMITS_PROBE_H_

#include "session/session_file_system.h"
#include <oxfilecache/host.h>
#include <oxfilecache/session.h>

namespace ox::session {

// Starts the manager once over a file system that is still probing.
Error ProbeLimits(host::LoadedModule& module, const SessionFileSystem& fileSystem,
                  CacheLimits* limits);

}  // namespace ox::session

#endif

// The limits as the module reads them.
#ifndef OX_SESSION_LIMITS_PROBE_H_
#define OX_SESSION_LIMITS_PROBE_H_

#include <string>

#include "session/configuration_snapshot.h"
#include "session/module_hold.h"
#include <oxfilecache/session.h>

namespace ox::internal {

// Starts the manager once over a file system that shows it the configuration and an empty
// directory, so it deletes nothing, and asks it for its limits.
Error ProbeLimits(ModuleHold& hold, const std::string& directory,
                  const ConfigurationSnapshot& configuration, session::CacheLimits* limits);

}  // namespace ox::internal

#endif

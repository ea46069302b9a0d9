#include "session/limits_probe.h"

#include <sys/stat.h>

#include <new>

#include "session/module_hold.h"

namespace ox::session {

Error ProbeLimits(host::LoadedModule& module, const SessionFileSystem& fileSystem,
                  CacheLimits* limits) {
  const host::ManagerReference manager(module);
  if (!manager) return MakeError(ErrorKind::kOutOfMemory, "no memory for the cache manager");
  limits->maxSize = static_cast<std::uint32_t>(manager->GetMaxSize());
  limits->maxEntries = static_cast<std::uint32_t>(manager->GetMaxEntries());
  limits->maxEntrySize = static_cast<std::uint32_t>(manager->GetMaxCacheValueSize());
  limits->cacheDirectory = fileSystem.AskedDirectory();
  return {};
}

Error ReadLimits(const std::string& directory, const std::string& modulePath, CacheLimits* limits) {
  try {
    struct stat status;
    if (stat(directory.c_str(), &status) != 0) {
      return SystemError("cannot read the directory", directory);
    }
    SessionFileSystem fileSystem(directory);
    Error error;
    const auto hold = ModuleHold::Take(modulePath, fileSystem, &error);
    return hold == nullptr ? error : ProbeLimits(hold->Module(), fileSystem, limits);
  } catch (const std::bad_alloc&) {
    return {ErrorKind::kOutOfMemory, {}, {}, 0};
  }
}

}  // namespace ox::session

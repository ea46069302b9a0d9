// Host services that the manager and all entries share. The manager's constructor obtains what is
// still null and its destructor gives both back, so entries use them without a test.
#ifndef OX_CACHE_MODULE_SERVICES_H_
#define OX_CACHE_MODULE_SERVICES_H_

#include "cache/relaxed.h"
#include "module/scoped_lock.h"
#include <oxfilecache/file_system.h>

namespace ox::core::cache {

struct ModuleServices {
  IFileSystem* fileSystem;
  // One mutex for the disk work of all entries. Taken after the manager's mutex, never before.
  HostMutex entryMutex;
  // Set when the host has no file object to give, and when memory runs out in the scan. The
  // manager's start clears it and looks.
  Relaxed<bool> hasStartFailed;
};

extern ModuleServices services;

}  // namespace ox::core::cache

#endif

// Where a cache's entries are, found out without the module.
#ifndef OX_SESSION_CACHE_LOCATION_H_
#define OX_SESSION_CACHE_LOCATION_H_

#include <string>

#include <oxfilecache/error.h>

namespace ox::internal {

// From the working directory that the process has now. An empty path stays empty.
Error MakeAbsolute(std::string* path);

// The cache directory that "file-cache.conf" in `directory` gives, absolute; `directory` itself
// where it gives none or is missing. Of the configuration only CACHE_DIRECTORY is read, as the
// module reads it: the first occurrence anywhere in the first 1,024 bytes counts. kConfiguration
// for a value that a session would not open either because it is empty or not ASCII.
Error FindCacheDirectory(const std::string& directory, std::string* cacheDirectory);

}  // namespace ox::internal

#endif

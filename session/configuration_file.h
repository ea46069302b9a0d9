// Writing "file-cache.conf".
#ifndef OX_SESSION_CONFIGURATION_FILE_H_
#define OX_SESSION_CONFIGURATION_FILE_H_

#include <string>

#include <oxfilecache/error.h>
#include <oxfilecache/session.h>

namespace ox::internal {

// The text from which the module reads these limits, with comments for people. An empty cache
// directory is left out: the module then takes the directory of the file.
std::string ConfigurationText(const session::CacheLimits& limits);

// Sets a maxEntrySize of 0 to maxSize.
void FillIn(session::CacheLimits* limits);

// kInvalidArgument for limits that the module would change or that admit nothing, and for a
// directory whose name it would not read whole.
Error CheckLimits(const session::CacheLimits& limits);

// Both put the file into the directory, whole or not at all, power cuts included: a configuration
// cut short could lack the number of entries, and the next start would delete them. `temporaryName`
// is one of a session's own names.
Error ReplaceConfigurationFile(const std::string& directory, const std::string& temporaryName,
                               const session::CacheLimits& limits);
// Leaves a file alone that is there already, also one that another process makes at this moment.
Error MakeConfigurationFile(const std::string& directory, const std::string& temporaryName,
                            const session::CacheLimits& limits);

// Deletes what killed processes left of these two. Best effort.
void DeleteLeftConfigurations(const std::string& directory);

}  // namespace ox::internal

#endif

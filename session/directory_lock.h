// One process at a time has a cache directory.
#ifndef OX_SESSION_DIRECTORY_LOCK_H_
#define OX_SESSION_DIRECTORY_LOCK_H_

#include <string>

#include <oxfilecache/descriptor.h>
#include <oxfilecache/error.h>

namespace ox::internal {

// Locks the directory for as long as `lock` stays open; the kernel lets go when the process dies.
// kInUse, with the process number of the one that has it, when it is taken. The lock file itself
// stays: whoever deleted it could lock a file that others no longer see.
Error LockDirectory(const std::string& directory, UniqueFd* lock);

}  // namespace ox::internal

#endif

// What the tool's exit status says.
#ifndef OX_TOOLS_OXCACHE_EXIT_STATUS_H_
#define OX_TOOLS_OXCACHE_EXIT_STATUS_H_

#include <algorithm>

#include <oxfilecache/error.h>

namespace ox::tools {

enum class ExitStatus {
  kDone = 0,
  kNotDone = 1,      // not found, refused, or the report found something wrong
  kUsage = 2,        // the command line, a URL or a metadata text cannot be taken
  kInputOutput = 3,  // a system call, the network or the module failed
};

inline ExitStatus Worse(ExitStatus a, ExitStatus b) {
  return std::max(a, b);
}

ExitStatus StatusOf(ErrorKind kind);

}  // namespace ox::tools

#endif

// A report that runs while another process uses the cache sees files that are about to be renamed
// or deleted. So a complaint counts only when another look, a moment later, makes it again about
// the same file.
#ifndef OX_TOOLS_OXCACHE_SECOND_LOOK_H_
#define OX_TOOLS_OXCACHE_SECOND_LOOK_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <oxfilecache/error.h>

namespace ox::tools {

struct Complaint {
  std::string file;  // without the directory
  std::string what;
  std::uint64_t bytes = 0;
};

// The files to look at; none means all.
using OnlyThese = std::optional<std::set<std::string>>;
using Look = std::function<Error(const OnlyThese& files, std::vector<Complaint>* complaints)>;

// Waits and looks again until every complaint is confirmed or gone, several times for a file that
// changes in the meantime. `complaints` gets the confirmed ones.
Error LookUntilConfirmed(const std::string& directory, const Look& look,
                         std::vector<Complaint>* complaints);

// Waits as long as a file that is being replaced may be missing.
void WaitBetweenLooks();

}  // namespace ox::tools

#endif

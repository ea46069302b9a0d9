// Commands that report and change nothing.
#ifndef OX_TOOLS_OXCACHE_REPORTS_H_
#define OX_TOOLS_OXCACHE_REPORTS_H_

#include <nlohmann/json.hpp>
#include <string>

#include "session/allocation_unit.h"
#include "session/survey.h"
#include "tools/oxcache/context.h"

namespace ox::tools {

ExitStatus List(Context& context, bool json);
ExitStatus ShowLimits(Context& context, bool json);
ExitStatus ShowStatistics(Context& context, bool json);
ExitStatus ShowMetrics(Context& context);
// What the next start of the module would delete, and why. kNotDone when it would delete anything.
ExitStatus Check(Context& context, bool json);
// kNotDone when something is wrong.
ExitStatus Verify(Context& context, bool json);

// What is said of each commit in Survey::blockedCommits.
inline constexpr char kBlockedCommit[] =
    "a store that cannot be finished: a directory has the name of its entry";

// Of all entries, as a session counts them.
std::uint64_t BytesOnDisk(const internal::Survey& survey, const internal::AllocationUnit& unit);

nlohmann::json LimitsJson(const session::CacheLimits& limits);
// One line of ASCII: other characters are escaped, so that no control character reaches a terminal.
// Bytes that are not UTF-8 become U+FFFD.
std::string JsonLine(const nlohmann::json& json);

// The metadata in a file as it is on disk, at most `capacity` bytes.
Error ReadMetadata(const std::string& directory, const std::string& file, std::size_t capacity,
                   std::string* metadata);

}  // namespace ox::tools

#endif

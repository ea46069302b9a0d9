#include "session/metrics.h"

#include "tools/oxcache/reports.h"
#include "tools/oxcache/text.h"

namespace ox::tools {

// Where a batch has a session, also what that has done.
ExitStatus ShowMetrics(Context& context) {
  session::NamedStatistics cache;
  internal::Survey survey;
  if (Error error = context.Inspect(&cache.limits, &survey)) return context.Fail(error);
  cache.cache = WithoutControls(cache.limits.cacheDirectory);
  if (context.HasSession()) {
    Error error;
    cache.statistics = context.Session(Context::Purpose::kUse, &error)->Statistics();
    return context.Print(session::MetricsText({cache}) + "# EOF\n");
  }
  cache.statistics.entries = survey.entries.size();
  cache.statistics.bytes =
      BytesOnDisk(survey, internal::AllocationUnit::Of(cache.limits.cacheDirectory));
  return context.Print(internal::GaugesText({cache}) + "# EOF\n");
}

}  // namespace ox::tools

#include "tools/oxcache/freeze.h"

#include "session/survey.h"
#include "session/use_order.h"
#include "tools/oxcache/text.h"

namespace ox::tools {

ExitStatus Freeze(Context& context) {
  Error error;
  session::CacheSession* session = context.Session(Context::Purpose::kUse, &error);
  if (session == nullptr) return context.Fail(error);
  const std::string directory = session->Limits().cacheDirectory;
  internal::Survey survey;
  if (error = internal::SurveyDirectory(directory, &survey); !error) {
    error = internal::KeepUseOrder(directory, survey);
  }
  if (error) return context.Fail(error);
  context.Tell("the order of use of " + EntriesText(survey.entries.size()) +
               " is kept until the next opening of the cache");
  return ExitStatus::kDone;
}

}  // namespace ox::tools

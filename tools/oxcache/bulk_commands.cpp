#include "tools/oxcache/bulk_commands.h"

#include "tools/oxcache/text.h"

namespace ox::tools {
namespace {

using session::CacheSession;
using session::SessionStatistics;
using session::TrimTarget;

std::string DeletedText(const SessionStatistics& before, const SessionStatistics& after) {
  std::string text = EntriesText(after.trimmed - before.trimmed + after.removed - before.removed);
  if (const auto leftovers = after.leftovers - before.leftovers; leftovers > 0) {
    text += " and " + std::to_string(leftovers) + (leftovers == 1 ? " file" : " files") +
            " that belonged to no entry";
  }
  return text + " deleted";
}

// Opening the session may delete entries too, so that the cache is within its limits; these count.
template <typename Step>
ExitStatus DeleteAndTell(Context& context, Step step) {
  Error error;
  const bool isOpen = context.HasSession();
  CacheSession* session = context.Session(Context::Purpose::kUse, &error);
  if (session == nullptr) return context.Fail(error);
  const SessionStatistics before = isOpen ? session->Statistics() : SessionStatistics();
  error = step(*session);
  context.Tell(DeletedText(before, session->Statistics()));
  return error ? context.Fail(error) : ExitStatus::kDone;
}

}  // namespace

ExitStatus Trim(Context& context, const TrimTarget& target) {
  const bool hasTarget = target.bytes || target.entries || target.unusedFor;
  return DeleteAndTell(context, [&](CacheSession& session) {
    return hasTarget ? session.TrimTo(target, nullptr) : session.Trim(nullptr);
  });
}

ExitStatus Clear(Context& context) {
  return DeleteAndTell(context, [](CacheSession& session) { return session.Clear(nullptr); });
}

}  // namespace ox::tools

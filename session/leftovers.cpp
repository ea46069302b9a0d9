#include "session/leftovers.h"

#include <cerrno>

#include "session/durable_io.h"
#include "session/errno_meaning.h"
#include "session/session_names.h"

namespace ox::internal {
namespace {

Error DeleteLeftover(const std::string& path, std::uint64_t* deleted) {
  if (DeleteFile(path)) {
    ++*deleted;
    return {};
  }
  return MayGoOnAfter(errno) ? Error{} : SystemError("cannot delete", path);
}

}  // namespace

Error DeleteLeftovers(const std::string& directory, const Survey& survey,
                      const IsBeingWritten& isBeingWritten, std::uint64_t* deleted) {
  for (const auto* names : {&survey.contentWithoutMetadata, &survey.metadataWithoutContent}) {
    for (const std::string& name : *names) {
      if (Error error = DeleteLeftover(directory + "/" + name, deleted)) return error;
    }
  }
  bool isSynchronised = false;
  for (const std::string& name : survey.staging) {
    const std::string id = StagingId(name);
    if (id.empty() || isBeingWritten(id) || IsOfBlockedCommit(survey, id)) continue;
    // The medium may still hold a commit file that was taken back; without its content it would
    // pass for one whose content is in place.
    if (!isSynchronised && !SyncDirectory(directory) && !MayGoOnAfter(errno)) {
      return SystemError("cannot synchronise", directory);
    }
    isSynchronised = true;
    if (Error error = DeleteLeftover(directory + "/" + name, deleted)) return error;
  }
  return {};
}

}  // namespace ox::internal

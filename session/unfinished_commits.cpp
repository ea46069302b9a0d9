#include "session/unfinished_commits.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "session/commit_files.h"
#include "session/content_in_place.h"
#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/errno_meaning.h"
#include "session/session_names.h"
#include "session/surveyed_entries.h"

namespace ox::internal {

using session::EvictionReason;

namespace {

// Makes staged content as long as its commit file says: what was kept of a writer may have grown
// since (keep_as.cpp), and a power cut may have taken its end away, so that it is of no use.
Error FitToSeal(const CommitFiles& files, bool* isWhole) {
  int error = 0;
  const auto seal = ReadSeal(files.commit, &error);
  errno = error;
  struct stat content;
  if (error != 0 || lstat(files.stagedContent.c_str(), &content) != 0) {
    return SystemError("cannot tell whether a commit is whole", files.stagedContent);
  }
  const auto bytes = static_cast<std::uint64_t>(content.st_size);
  *isWhole = !seal || bytes == seal->contentBytes;
  if (*isWhole || bytes < seal->contentBytes) return {};
  // A file with a second name is not cut: the other name may belong to somebody else.
  *isWhole = S_ISREG(content.st_mode) && content.st_nlink == 1;
  if (!*isWhole) return {};
  if (ShortenFile(files.stagedContent, seal->contentBytes)) return {};
  return SystemError("cannot shorten", files.stagedContent);
}

// A commit that cannot be finished leaves an error, and `isBlocked` where others go on without it.
Error FinishCommit(const std::string& directory, const std::string& entryName,
                   const std::string& id, bool* isBlocked) {
  const CommitFiles files(directory, id, directory + "/" + entryName);
  *isBlocked = false;
  const bool isContentStaged = FileExists(files.stagedContent);
  bool isThere = false;
  if (isContentStaged) {
    if (Error error = FitToSeal(files, &isThere)) {
      *isBlocked = MayGoOnAfter(error.systemError) || MeansUnreadable(error.systemError);
      return error;
    }
  } else if (!IsContentInPlace(files.commit, files.content, &isThere)) {
    *isBlocked = MayGoOnAfter(errno) || MeansUnreadable(errno);
    return SystemError("cannot tell whether a commit is in place", files.content);
  }
  // The new content is lost: there is nothing to finish.
  if (!isThere && files.Delete(files.commit)) return {};
  if (!isThere) {
    *isBlocked = MayGoOnAfter(errno);
    return SystemError("cannot delete", files.commit);
  }
  if (files.Finish(isContentStaged, Synchronise::kWherePossible)) return {};
  *isBlocked = MayGoOnAfter(errno);
  return SystemError("cannot finish a commit", files.content);
}

// Whether the metadata in place is of the content there, as before the commit.
bool HasOldEntry(const CommitFiles& files) {
  if (FileExists(files.stagedContent)) return true;
  bool isInPlace = false;
  return IsContentInPlace(files.commit, files.content, &isInPlace) && !isInPlace;
}

CommitFiles FilesOf(const std::string& directory, const std::string& commitName,
                    std::string* entryName) {
  std::string id;
  ParseCommitFileName(commitName, entryName, &id);
  return {directory, id, directory + "/" + *entryName};
}

// A commit that cannot be finished, or not yet, waits for another start.
void SetAside(const std::string& directory, const std::string& name, Survey* survey) {
  survey->blockedCommits.push_back(name);
  std::string entryName;
  if (HasOldEntry(FilesOf(directory, name, &entryName))) return;
  std::vector<SurveyedEntry>& entries = survey->entries;
  const auto entry = std::find_if(entries.begin(), entries.end(),
                                  [&](const SurveyedEntry& e) { return e.name == entryName; });
  if (entry == entries.end()) return;
  survey->bytes -= entry->contentBytes + entry->metadataBytes;
  entries.erase(entry);
}

// Evicts for a commit on a full disk, from the entry on that was used longest ago. A renaming needs
// a block or two: where a few entries do not give them, more would go in vain.
class Evictor {
 public:
  Evictor(const std::string& directory, const Survey& survey, EvictionLog* evictions)
      : directory_(directory),
        entries_(survey.entries),
        staging_(survey.staging),
        evictions_(evictions) {}

  bool Evict() {
    constexpr std::size_t kMost = 8;
    while (next_ < entries_.size() && HasCommit(entries_[next_].name))
      ++next_;
    if (evictions_ == nullptr || next_ >= std::min(entries_.size(), kMost)) return false;
    return !DeleteEntry(directory_, entries_[next_++], EvictionReason::kRoom, *evictions_);
  }

 private:
  // What is committed next is not what was used longest ago, whatever the time of its old metadata.
  bool HasCommit(std::string_view name) const {
    return std::any_of(staging_.begin(), staging_.end(), [&](const std::string& staged) {
      std::string entryName;
      std::string id;
      return ParseCommitFileName(staged, &entryName, &id) && entryName == name;
    });
  }

  const std::string& directory_;
  const std::vector<SurveyedEntry>& entries_;
  const std::vector<std::string>& staging_;
  EvictionLog* evictions_;
  std::size_t next_ = 0;
};

}  // namespace

bool IsOfBlockedCommit(const Survey& survey, const std::string& id) {
  return std::any_of(survey.blockedCommits.begin(), survey.blockedCommits.end(),
                     [&](const std::string& name) {
                       std::string entryName;
                       std::string blockedId;
                       return ParseCommitFileName(name, &entryName, &blockedId) && blockedId == id;
                     });
}

Error GiveUpCommit(const std::string& directory, const std::string& commitName) {
  std::string entryName;
  const CommitFiles files = FilesOf(directory, commitName, &entryName);
  if (Error error = files.CheckTargets()) return error;
  if (!HasOldEntry(files)) {
    for (const std::string& path : {files.content, files.metadata}) {
      if (!DeleteFile(path)) return SystemError("cannot delete", path);
    }
    // Without the commit file nothing would tell that old metadata is of other content.
    if (!files.SynchroniseDirectory() && !MayGoOnAfter(errno)) {
      return SystemError("cannot synchronise", directory);
    }
  }
  return DeleteFile(files.commit) ? Error{} : SystemError("cannot delete", files.commit);
}

Error FinishCommits(const std::string& directory, const IsBeingWritten& isBeingWritten,
                    EvictionLog* evictions, Survey* survey) {
  if (Error error = SurveyDirectory(directory, survey)) return error;
  bool isChanged = false;
  bool mayFinishLater = false;
  std::vector<std::string> blocked;
  Evictor evictor(directory, *survey, evictions);
  for (const std::string& name : survey->staging) {
    std::string entryName;
    std::string id;
    if (!ParseCommitFileName(name, &entryName, &id) || isBeingWritten(id)) continue;
    isChanged = true;
    bool isBlocked = false;
    Error error = FinishCommit(directory, entryName, id, &isBlocked);
    while (MeansNoSpace(error.systemError) && evictor.Evict())
      error = FinishCommit(directory, entryName, id, &isBlocked);
    if (!error) continue;
    if (!isBlocked) return error;
    mayFinishLater = mayFinishLater || MayBeGoneLater(error.systemError);
    blocked.push_back(name);
  }
  if (!isChanged) return {};
  if (Error error = SurveyDirectory(directory, survey)) return error;
  for (const std::string& name : blocked)
    SetAside(directory, name, survey);
  survey->mayFinishLater = mayFinishLater;
  return {};
}

}  // namespace ox::internal

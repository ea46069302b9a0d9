#include "session/half_placed.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "host/system_calls.h"
#include "session/content_in_place.h"
#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/errno_meaning.h"
#include "session/session_names.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/format.h>

namespace ox::internal {
namespace {

struct StagedContent {
  std::string name;
  std::string path;
  std::uint64_t bytes;
  std::optional<std::uint32_t> sum;  // once it was asked for
};

// The staged file is kept: takes it off the list of files to delete.
void NoteKept(const std::string& name, Survey* survey) {
  survey->staging.erase(std::find(survey->staging.begin(), survey->staging.end(), name));
}

// True: a later start tries again. Other errors, such as no free descriptor, stop the opening.
bool MayLookLater(int error) {
  return MayGoOnAfter(error) || MeansUnreadable(error);
}

// Content that cannot be looked at now is kept.
Error ListLeftStaged(const std::string& directory, const IsBeingWritten& isBeingWritten,
                     Survey* survey, std::vector<StagedContent>* contents) {
  const std::vector<std::string> staging = survey->staging;
  for (const std::string& name : staging) {
    const std::string id = StagingId(name);
    if (id.empty() || name != StagedContentName(id) || isBeingWritten(id)) continue;
    if (IsOfBlockedCommit(*survey, id)) continue;
    const std::string path = directory + "/" + name;
    struct stat status;
    if (lstat(path.c_str(), &status) == 0) {
      const auto bytes = static_cast<std::uint64_t>(status.st_size);
      if (S_ISREG(status.st_mode)) contents->push_back({name, path, bytes, std::nullopt});
    } else if (errno == ENOENT) {
      continue;
    } else if (!MayLookLater(errno)) {
      return SystemError("cannot look at staged content", path);
    } else {
      NoteKept(name, survey);
    }
  }
  return {};
}

// False with errno when it cannot be read.
bool FindSum(StagedContent& content) {
  if (content.sum) return true;
  const UniqueFd file(OpenWithoutTrace(AT_FDCWD, content.path.c_str(), O_NOFOLLOW | O_NONBLOCK));
  std::uint32_t found = 0;
  if (!file.IsOpen() || !SumContent(file.Get(), &found)) return false;
  content.sum = found;
  return true;
}

enum class Belonging { kNone, kIsMissing, kUnknown };

// kIsMissing: the entry's seal tells the length and the sum of this content, and what is in place
// is something else. kUnknown with the errno in `error`.
Belonging BelongingOf(StagedContent& content, const EntrySeal& seal, const std::string& metadata,
                      const std::string& path, int* error) {
  if (content.bytes != seal.contentBytes) return Belonging::kNone;
  const bool isReadable = FindSum(content);
  if (!isReadable) *error = errno;
  if (isReadable && *content.sum != seal.contentSum) return Belonging::kNone;
  bool isInPlace = false;
  if (!IsContentInPlace(metadata, path, &isInPlace)) {
    *error = errno;
    return Belonging::kUnknown;
  }
  if (isInPlace) return Belonging::kNone;
  return isReadable ? Belonging::kIsMissing : Belonging::kUnknown;
}

void LeaveOut(const std::vector<std::string_view>& names, Survey* survey) {
  for (const std::string_view name : names) {
    const auto entry = std::find_if(survey->entries.begin(), survey->entries.end(),
                                    [&](const SurveyedEntry& e) { return e.name == name; });
    if (entry == survey->entries.end()) continue;
    survey->bytes -= entry->contentBytes + entry->metadataBytes;
    survey->waitingEntries.emplace_back(name);
    survey->entries.erase(entry);
  }
}

// kBlocked: the content is the entry's and cannot be put in place. kUncertain: that cannot be told.
enum class Found { kNothing, kPlaced, kBlocked, kUncertain };

// Puts the content in place where it is this entry's. `error` is the errno where it stays so, and
// before that the one for which it is unknown whose the content is.
Error PlaceIfMissing(const StagedContent& content, Belonging belonging, const std::string& path,
                     Found* found, int* error) {
  *found = Found::kNothing;
  if (belonging == Belonging::kNone) return {};
  const bool isMissing = belonging == Belonging::kIsMissing;
  *found = Found::kPlaced;
  if (isMissing && RenameFile(content.path, path)) return {};
  if (isMissing) *error = errno;
  *found = isMissing ? Found::kBlocked : Found::kUncertain;
  if (isMissing ? MayGoOnAfter(*error) : MayLookLater(*error)) return {};
  errno = *error;
  return SystemError("cannot tell whether a commit is in place", path);
}

Error LookFor(StagedContent& content, const std::string& path, Found* found, int* error) {
  const std::string metadata = path + format::kMetadataSuffix;
  const auto seal = ReadSeal(metadata, error);
  Belonging belonging = *error != 0 ? Belonging::kUnknown : Belonging::kNone;
  if (seal) belonging = BelongingOf(content, *seal, metadata, path, error);
  return PlaceIfMissing(content, belonging, path, found, error);
}

}  // namespace

Error PlaceContents(const std::string& directory, const IsBeingWritten& isBeingWritten,
                    Survey* survey) {
  std::vector<StagedContent> contents;
  if (Error error = ListLeftStaged(directory, isBeingWritten, survey, &contents)) return error;
  std::vector<std::string_view> leftOut;
  for (StagedContent& content : contents) {
    bool isKept = false;
    for (SurveyedEntry& entry : survey->entries) {
      Found found = Found::kNothing;
      int whyNot = 0;
      const std::string path = directory + "/" + std::string(entry.name);
      if (Error error = LookFor(content, path, &found, &whyNot)) return error;
      const bool isLeftOut = found == Found::kBlocked || found == Found::kUncertain;
      if (isLeftOut) {
        leftOut.push_back(entry.name);
        survey->mayFinishLater = survey->mayFinishLater || MayBeGoneLater(whyNot);
      }
      isKept = isKept || found != Found::kNothing;
      if (found == Found::kPlaced) {
        survey->bytes += content.bytes - entry.contentBytes;
        entry.contentBytes = content.bytes;
      }
      if (found == Found::kPlaced || found == Found::kBlocked) break;
    }
    if (isKept) NoteKept(content.name, survey);
  }
  LeaveOut(leftOut, survey);
  return {};
}

}  // namespace ox::internal

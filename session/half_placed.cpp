#include "session/half_placed.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "host/system_calls.h"
#include "session/content_in_place.h"
#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/recovery.h"
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

std::vector<StagedContent> LeftStaged(
    const std::string& directory, const Survey& survey,
    const std::function<bool(const std::string& id)>& isBeingWritten) {
  std::vector<StagedContent> contents;
  for (const std::string& name : survey.staging) {
    const std::string id = StagingId(name);
    if (id.empty() || name != StagedContentName(id) || isBeingWritten(id)) continue;
    if (IsOfBlockedCommit(survey, id)) continue;
    const std::string path = directory + "/" + name;
    const std::uint64_t bytes = FileSize(path);
    if (bytes > 0) contents.push_back({name, path, bytes, std::nullopt});
  }
  return contents;
}

// Content that cannot be read is nobody's.
bool HasSum(StagedContent& content, std::uint32_t sum) {
  if (!content.sum) {
    const UniqueFd file(OpenWithoutTrace(AT_FDCWD, content.path.c_str(), O_NOFOLLOW | O_NONBLOCK));
    std::uint32_t found = 0;
    if (!file.IsOpen() || !SumContent(file.Get(), &found)) return false;
    content.sum = found;
  }
  return *content.sum == sum;
}

StagedContent* FindSealed(std::vector<StagedContent>& contents, const EntrySeal& seal) {
  for (StagedContent& content : contents) {
    if (content.bytes == seal.contentBytes && HasSum(content, seal.contentSum)) return &content;
  }
  return nullptr;
}

// Where the content cannot be renamed now, the entry waits with it for another start.
Error PlaceContentOf(const std::string& directory, std::vector<StagedContent>& contents,
                     SurveyedEntry& entry, Survey* survey, bool* mustWait) {
  const std::string path = directory + "/" + std::string(entry.name);
  const std::string metadata = path + format::kMetadataSuffix;
  const auto seal = ReadSeal(metadata);
  StagedContent* content = seal ? FindSealed(contents, *seal) : nullptr;
  bool isInPlace = true;
  if (content == nullptr || !IsContentInPlace(metadata, path, &isInPlace) || isInPlace) return {};
  if (!RenameFile(content->path, path)) {
    const bool mayPass = errno == EROFS || MeansNoSpace(errno);
    *mustWait = mayPass || IsLastingRefusal(errno);
    if (!*mustWait) return SystemError("cannot put the content in place", path);
    survey->mayPass = survey->mayPass || mayPass;
  }
  // No seal is of no bytes: it serves one entry.
  entry.contentBytes = std::exchange(content->bytes, 0);
  survey->staging.erase(std::find(survey->staging.begin(), survey->staging.end(), content->name));
  return {};
}

}  // namespace

Error PlaceContents(const std::string& directory,
                    const std::function<bool(const std::string& id)>& isBeingWritten,
                    Survey* survey) {
  std::vector<StagedContent> contents = LeftStaged(directory, *survey, isBeingWritten);
  if (contents.empty()) return {};
  for (auto entry = survey->entries.begin(); entry != survey->entries.end();) {
    bool mustWait = false;
    if (Error error = PlaceContentOf(directory, contents, *entry, survey, &mustWait)) return error;
    entry = mustWait ? survey->entries.erase(entry) : entry + 1;
  }
  return {};
}

}  // namespace ox::internal

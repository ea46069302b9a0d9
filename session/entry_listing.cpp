#include "session/entry_listing.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <utility>

#include "session/content_in_place.h"
#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/session_names.h"
#include <oxfilecache/format.h>

namespace ox::internal {

using session::ListedEntry;

namespace {

using EntriesByName = std::map<std::string, ListedEntry>;

// As the recovery will put it in place.
void AddUnfinished(const std::string& directory, const std::string& commitName,
                   EntriesByName* entries) {
  ListedEntry entry;
  std::string id;
  if (!ParseCommitFileName(commitName, &entry.name, &id)) return;
  if (IsOfGrowingContent(directory, commitName)) return;
  struct stat metadata;
  if (lstat((directory + "/" + commitName).c_str(), &metadata) != 0) return;
  entry.contentBytes = FileSize(StagedContentPath(directory, id));
  if (entry.contentBytes == 0) {
    const std::string content = directory + "/" + entry.name;
    bool isInPlace = false;
    if (!IsContentInPlace(directory + "/" + commitName, content, &isInPlace) || !isInPlace) return;
    entry.contentBytes = FileSize(content);
  }
  if (entry.contentBytes == 0) return;
  entry.metadataName = commitName;
  entry.url = SealedUrl(directory + "/" + commitName);
  entry.metadataBytes = static_cast<std::uint64_t>(metadata.st_size);
  entry.used = metadata.st_mtim;
  (*entries)[entry.name] = std::move(entry);
}

// By name: a listing of a directory that is being changed may show a file twice.
EntriesByName EntriesIn(const std::string& directory, const Survey& survey) {
  EntriesByName entries;
  for (const SurveyedEntry& surveyed : survey.entries) {
    entries.insert_or_assign(std::string(surveyed.name), ToListed(directory, surveyed));
  }
  for (const std::string& name : survey.staging)
    AddUnfinished(directory, name, &entries);
  return entries;
}

}  // namespace

std::string SealedUrl(const std::string& metadataPath) {
  const auto seal = ReadSeal(metadataPath);
  return seal ? seal->url : std::string();
}

ListedEntry ToListed(const std::string& directory, const SurveyedEntry& entry) {
  const std::string name(entry.name);
  const std::string metadataName = name + format::kMetadataSuffix;
  return {SealedUrl(directory + "/" + metadataName),
          name,
          metadataName,
          entry.contentBytes,
          entry.metadataBytes,
          entry.used};
}

Error ListEntries(const std::string& directory, std::vector<ListedEntry>* list) {
  list->clear();
  Survey survey;
  if (Error error = SurveyDirectory(directory, &survey)) {
    return error.systemError == ENOENT ? Error{} : error;
  }
  for (auto& [name, entry] : EntriesIn(directory, survey)) {
    list->push_back(std::move(entry));
  }
  std::sort(list->begin(), list->end(), [](const ListedEntry& a, const ListedEntry& b) {
    return IsOlder(a.used, a.name, b.used, b.name);
  });
  return {};
}

}  // namespace ox::internal

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <tuple>
#include <utility>

#include "session/cache_location.h"
#include "session/committed_pair.h"
#include "session/durable_io.h"
#include "session/entry_name.h"
#include "session/listing.h"
#include "session/session_names.h"
#include "session/survey.h"
#include "session/text_file.h"
#include "session/utf8.h"
#include "session/without_exceptions.h"
#include <oxfilecache/format.h>
#include <oxfilecache/reader.h>

namespace ox::session {
namespace {

using internal::CommittedPair;

// False with errno, which is 0 for what a session would not give back as it is.
bool ReadMetadata(int file, std::string* metadata) {
  if (!internal::ReadText(file, metadata)) return false;
  errno = 0;
  return !metadata->empty() && internal::IsStrictUtf8(*metadata);
}

Error TakePair(CommittedPair pair, FetchedEntry* entry) {
  struct stat status;
  if (fstat(pair.content.Get(), &status) != 0) {
    return SystemError("cannot look at the content", entry->path);
  }
  if (status.st_size == 0) return internal::NoEntry();
  entry->size = static_cast<std::uint64_t>(status.st_size);
  entry->content = std::move(pair.content);
  if (ReadMetadata(pair.metadata.Get(), &entry->metadata)) return {};
  return SystemError("cannot read the metadata whole", entry->path + format::kMetadataSuffix);
}

using EntriesByName = std::map<std::string, ListedEntry>;

// As the recovery will put it in place.
void AddUnfinished(const std::string& directory, const std::string& commitName,
                   EntriesByName* entries) {
  std::string name;
  std::string id;
  if (!internal::ParseCommitFileName(commitName, &name, &id)) return;
  struct stat metadata;
  if (lstat((directory + "/" + commitName).c_str(), &metadata) != 0) return;
  std::uint64_t content = internal::FileSize(directory + "/" + internal::StagedContentName(id));
  if (content == 0) content = internal::FileSize(directory + "/" + name);
  if (content == 0) return;
  (*entries)[name] = {name, internal::SealedUrl(directory + "/" + commitName), content,
                      static_cast<std::uint64_t>(metadata.st_size), metadata.st_mtim};
}

bool IsOlder(const ListedEntry& a, const ListedEntry& b) {
  return std::tie(a.used.tv_sec, a.used.tv_nsec, a.name) <
         std::tie(b.used.tv_sec, b.used.tv_nsec, b.name);
}

}  // namespace

std::unique_ptr<CacheReader> CacheReader::Open(const ReaderOptions& options, Error* error) {
  std::unique_ptr<CacheReader> opened;
  *error = internal::WithoutExceptions([&]() -> Error {
    std::unique_ptr<CacheReader> reader(new CacheReader);
    std::string directory =
        options.cacheDirectory.empty() ? options.directory : options.cacheDirectory;
    if (directory.empty()) return MakeError(ErrorKind::kInvalidArgument, "no directory is named");
    if (Error failed = internal::MakeAbsolute(&directory)) return failed;
    struct stat status;
    if (stat(directory.c_str(), &status) != 0) {
      return SystemError("cannot read the directory", directory);
    }
    reader->cacheDirectory_ = directory;
    if (options.cacheDirectory.empty()) {
      if (Error failed = internal::FindCacheDirectory(directory, &reader->cacheDirectory_)) {
        return failed;
      }
    }
    opened = std::move(reader);
    return {};
  });
  return opened;
}

std::optional<FetchedEntry> CacheReader::Fetch(const std::string& url, Error* error) const {
  std::optional<FetchedEntry> found;
  *error = internal::WithoutExceptions([&]() -> Error {
    if (Error invalid = internal::CheckUrl(url)) return invalid;
    const std::string name = internal::ContentName(url);
    CommittedPair pair;
    if (Error failed = internal::OpenCommittedPair(cacheDirectory_, name, &pair)) return failed;
    FetchedEntry entry;
    entry.path = cacheDirectory_ + "/" + name;
    Error result = TakePair(std::move(pair), &entry);
    if (!result) found = std::move(entry);
    return result;
  });
  return found;
}

std::vector<ListedEntry> CacheReader::List(Error* error) const {
  std::vector<ListedEntry> list;
  *error = internal::WithoutExceptions([&]() -> Error {
    internal::Survey survey;
    if (Error failed = internal::SurveyDirectory(cacheDirectory_, &survey)) {
      return failed.systemError == ENOENT ? Error{} : failed;
    }
    // By name: a listing of a directory that is being changed may show a file twice.
    EntriesByName entries;
    for (const internal::SurveyedEntry& entry : survey.entries)
      entries[entry.name] = internal::ToListed(cacheDirectory_, entry);
    for (const std::string& name : survey.staging)
      AddUnfinished(cacheDirectory_, name, &entries);
    for (auto& [name, entry] : entries)
      list.push_back(std::move(entry));
    std::sort(list.begin(), list.end(), IsOlder);
    return {};
  });
  return list;
}

}  // namespace ox::session

#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "host/mutex.h"
#include "session/cache_location.h"
#include "session/committed_pair.h"
#include "session/entry_listing.h"
#include "session/entry_name.h"
#include "session/entry_seal.h"
#include "session/known_entries.h"
#include "session/session_names.h"
#include "session/text_file.h"
#include "session/utf8.h"
#include "session/without_exceptions.h"
#include <oxfilecache/format.h>
#include <oxfilecache/reader.h>

namespace ox::internal {

struct ReaderState {
  std::string directory;  // where the entries are
  session::Check check = session::Check::kOnce;
  Mutex mutex;
  KnownEntries known OX_GUARDED_BY(mutex){IdSource().Secret()};
};

}  // namespace ox::internal

namespace ox::session {

using internal::CommittedPair;
using internal::MutexLock;
using internal::ReaderState;

namespace {

// What a reader remembers is bounded by this, not by a count of the entries: it has none.
constexpr std::uint64_t kRememberedEntries = 4096;

// A pair on its way out.
struct Finding {
  CommittedPair pair;
  struct stat content {};
  FetchedEntry entry;
};

Error Damaged(const Finding& finding) {
  Error error = MakeError(ErrorKind::kDamaged, "not what was committed");
  error.path = finding.entry.path;
  return error;
}

// Error with errno, which is 0 for what a session would not give back as it is.
Error ReadMetadata(Finding* finding) {
  std::string& metadata = finding->entry.metadata;
  if (internal::ReadText(finding->pair.metadata.Get(), &metadata)) {
    if (internal::LacksItsBytes(metadata)) return Damaged(*finding);
    if (internal::IsStrictUtf8(metadata)) return {};
    errno = 0;
  }
  return SystemError("cannot read the metadata whole",
                     finding->entry.path + format::kMetadataSuffix);
}

Error ReadPair(Finding* finding) {
  if (fstat(finding->pair.content.Get(), &finding->content) != 0) {
    return SystemError("cannot look at the content", finding->entry.path);
  }
  if (finding->content.st_size == 0) return Damaged(*finding);
  finding->entry.size = static_cast<std::uint64_t>(finding->content.st_size);
  return ReadMetadata(finding);
}

Error CheckSum(const Finding& finding, std::uint32_t expected) {
  std::uint32_t sum = 0;
  if (!internal::SumContent(finding.pair.content.Get(), &sum)) {
    return SystemError("cannot read the content", finding.entry.path);
  }
  return sum == expected ? Error{} : Damaged(finding);
}

Error CompareWithSeal(const Finding& finding, const std::string& url, Check check) {
  const auto seal = internal::ReadSeal(finding.pair.metadata.Get());
  if (!seal) return {};
  if (!seal->IsOf(url)) return internal::NoEntry();
  if (seal->contentBytes != finding.entry.size || !seal->HasMetadata(finding.entry.metadata)) {
    return Damaged(finding);
  }
  return check == Check::kNever ? Error{} : CheckSum(finding, seal->contentSum);
}

// Reads the whole content, so not under the mutex.
Error CheckUnlessKnown(ReaderState& state, const Finding& finding, const std::string& url) {
  std::uint64_t fingerprint = 0;
  {
    const MutexLock lock(state.mutex);
    fingerprint = state.known.Fingerprint(url, finding.content, finding.entry.metadata);
    if (state.known.Contains(fingerprint) && state.check != Check::kAlways) return {};
  }
  if (Error error = CompareWithSeal(finding, url, state.check)) return error;
  const MutexLock lock(state.mutex);
  state.known.Add(fingerprint, kRememberedEntries);
  return {};
}

Error FetchEntry(ReaderState& state, const std::string& url, FetchedEntry* entry) {
  if (Error invalid = internal::CheckUrl(url)) return invalid;
  const std::string name = internal::ContentName(url);
  Finding finding;
  finding.entry.path = state.directory + "/" + name;
  if (Error error = internal::OpenCommittedPair(state.directory, name, &finding.pair)) return error;
  if (Error error = ReadPair(&finding)) return error;
  if (Error error = CheckUnlessKnown(state, finding, url)) return error;
  finding.entry.content = std::move(finding.pair.content);
  *entry = std::move(finding.entry);
  return {};
}

Error FindDirectory(const ReaderOptions& options, std::string* cacheDirectory) {
  const bool isNamed = !options.cacheDirectory.empty();
  std::string directory = isNamed ? options.cacheDirectory : options.directory;
  if (directory.empty()) return MakeError(ErrorKind::kInvalidArgument, "no directory is named");
  if (Error error = internal::MakeAbsolute(&directory)) return error;
  struct stat status;
  if (stat(directory.c_str(), &status) != 0) {
    return SystemError("cannot read the directory", directory);
  }
  if (!isNamed) return internal::FindCacheDirectory(directory, cacheDirectory);
  *cacheDirectory = directory;
  return {};
}

}  // namespace

CacheReader::CacheReader(std::unique_ptr<ReaderState> state) : state_(std::move(state)) {}
CacheReader::~CacheReader() = default;

std::unique_ptr<CacheReader> CacheReader::Open(const ReaderOptions& options, Error* error) {
  std::unique_ptr<CacheReader> opened;
  *error = internal::WithoutExceptions([&]() -> Error {
    auto state = std::make_unique<ReaderState>();
    state->check = options.check;
    if (Error failed = FindDirectory(options, &state->directory)) return failed;
    opened.reset(new CacheReader(std::move(state)));
    return {};
  });
  return opened;
}

std::optional<FetchedEntry> CacheReader::Fetch(const std::string& url, Error* error) const {
  std::optional<FetchedEntry> found;
  *error = internal::WithoutExceptions([&]() -> Error {
    FetchedEntry entry;
    Error result = FetchEntry(*state_, url, &entry);
    if (!result) found = std::move(entry);
    return result;
  });
  return found;
}

std::vector<ListedEntry> CacheReader::List(Error* error) const {
  std::vector<ListedEntry> list;
  *error = internal::WithoutExceptions(
      [&]() -> Error { return internal::ListEntries(state_->directory, &list); });
  return list;
}

const std::string& CacheReader::CacheDirectory() const {
  return state_->directory;
}

}  // namespace ox::session

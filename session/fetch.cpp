// Finding an entry, opening its content, and making sure that it is what was committed.
#include "session/fetch.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "host/system_calls.h"
#include "session/durable_io.h"
#include "session/entry_name.h"
#include "session/entry_seal.h"
#include "session/eviction_news.h"
#include "session/metadata_file.h"
#include "session/module_text.h"
#include "session/session_state.h"
#include "session/text_file.h"
#include "session/use_clock.h"
#include <oxfilecache/format.h>

namespace ox::session {

using core::cache::CacheValue;
using internal::MutexLock;
using internal::SessionState;

namespace {

Error Damaged(const std::string& path) {
  Error error = MakeError(ErrorKind::kDamaged, "not what was committed, deleted");
  error.path = path;
  return error;
}

// An entry on its way out.
struct Finding {
  FetchedEntry entry;
  struct stat content {};
  std::int64_t lastUse = 0;   // nanoseconds since 1970
  std::uint64_t changes = 0;  // DiskAccount::Changes when it was found
  std::uint64_t fingerprint = 0;
  // What the content's sum has to be, where it is to be looked at.
  std::optional<std::uint32_t> expectedSum;
};

// O_NONBLOCK, so that a FIFO planted under the name cannot hang the device.
constexpr int kReadingFlags = O_NOFOLLOW | O_NONBLOCK;

// From the directory that the module's metadata comes from: both follow the path, and where it
// leads to another directory, both do.
UniqueFd OpenByPath(SessionState& state, const std::string& path) {
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | kReadingFlags;
  return UniqueFd(
      state.contentDirectory.OpenFile(path.c_str(), state.cacheDirectory.size() + 1, kFlags));
}

UniqueFd OpenLocked(const SessionState& state, const std::string& path) {
  const internal::FileAt file = state.directoryLock->At(path);
  return UniqueFd(internal::OpenWithoutTrace(file.directory, file.path, kReadingFlags));
}

// Best effort: an entry whose time cannot be written is still served.
void NoteUse(SessionState& state, const Finding& finding) OX_REQUIRES(state.mutex) {
  const std::int64_t now = state.cache.Clock().Next();
  // A time that lies ahead is somebody else's, and is set right.
  if (finding.lastUse > 0 && finding.lastUse <= now) {
    const std::chrono::nanoseconds unused(now - finding.lastUse);
    // In seconds: the option may be more than nanoseconds can hold.
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(unused);
    if (seconds < state.options.touchInterval) return;
  }
  internal::SetFileTime(state.directoryLock->At(finding.entry.path + format::kMetadataSuffix), now);
}

bool IsDamaged(const std::string& path) {
  if (!S_ISREG(internal::StatusOfFile(path).st_mode)) return false;
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  std::string text;
  return file.IsOpen() && internal::ReadText(file.Get(), &text) && internal::LacksItsBytes(text);
}

Error ReadMetadata(SessionState& state, CacheValue& value, Finding* finding)
    OX_REQUIRES(state.mutex) {
  FetchedEntry& entry = finding->entry;
  entry.metadata = value.GetMetaData().UTF8();
  const auto read = state.cache.TakeMetadataRead();
  // Somebody deleted it.
  if (read && read->error == ENOENT) return Damaged(entry.path);
  // A commit writes at least one byte.
  if (!read || read->error != 0 || read->bytes == 0 || read->bytes != entry.metadata.size()) {
    const std::string path = entry.path + format::kMetadataSuffix;
    if (IsDamaged(path)) return Damaged(entry.path);
    errno = read ? read->error : 0;
    return SystemError("cannot read the metadata whole", path);
  }
  finding->lastUse = read->modified;
  return {};
}

Error TakeContent(UniqueFd content, Finding* finding) {
  FetchedEntry& entry = finding->entry;
  entry.content = std::move(content);
  if (!entry.content.IsOpen()) {
    return errno == ENOENT ? Damaged(entry.path)
                           : SystemError("cannot open the content", entry.path);
  }
  if (fstat(entry.content.Get(), &finding->content) != 0) {
    return SystemError("cannot look at the content", entry.path);
  }
  if (!S_ISREG(finding->content.st_mode)) {
    errno = 0;
    return SystemError("the content is not a regular file", entry.path);
  }
  entry.size = static_cast<std::uint64_t>(finding->content.st_size);
  return entry.size > 0 ? Error{} : Damaged(entry.path);
}

// Compares the entry with its seal, but for the content's sum.
Error CheckSeal(SessionState& state, const std::string& url, Finding* finding)
    OX_REQUIRES(state.mutex) {
  const FetchedEntry& entry = finding->entry;
  const std::uint64_t entries = state.cache.Account().Entries();
  finding->fingerprint = state.known.Fingerprint(url, finding->content, entry.metadata);
  const bool isKnown = state.known.Contains(finding->fingerprint);
  if (isKnown && state.options.check != Check::kAlways) return {};
  int sealError = 0;
  const auto seal = internal::ReadSeal(entry.path + format::kMetadataSuffix, &sealError);
  if (sealError != 0) {
    errno = sealError;
    return SystemError("cannot read the seal", entry.path + format::kMetadataSuffix);
  }
  if (seal && !seal->IsOf(url)) return internal::NoEntry();
  const bool isWhole =
      !seal || (seal->contentBytes == entry.size && seal->HasMetadata(entry.metadata));
  if (!isWhole) return Damaged(entry.path);
  if (seal && state.options.check != Check::kNever) {
    finding->expectedSum = seal->contentSum;
  } else {
    state.known.Add(finding->fingerprint, entries);
  }
  return {};
}

// The content was deleted, cut or changed by somebody else or a power cut.
void RemoveDamaged(SessionState& state, CacheValue& value) OX_REQUIRES(state.mutex) {
  // It may be the entry of a directory that took this one's place a moment ago.
  if (state.directoryLock->Check(true)) return;
  const std::string path = internal::ContentPath(value);
  state.cache.Evictions().Note(EvictionReason::kDamaged, path, internal::FileSize(path));
  state.cache.Remove(&value);
}

// Everything but the content.
Error Locate(SessionState& state, const OxString& text, Finding* finding) OX_REQUIRES(state.mutex) {
  internal::RunningCache& cache = state.cache;
  if (Error failed = cache.EnsureCurrent()) return failed;
  cache.TakeMetadataRead();
  CacheValue* value = cache.Find(text);
  if (value == nullptr) return internal::NoEntry();
  finding->entry.path = internal::ContentPath(*value);
  Error error = ReadMetadata(state, *value, finding);
  finding->changes = cache.Account().Changes();
  if (error.kind == ErrorKind::kDamaged) RemoveDamaged(state, *value);
  return error;
}

// After the content was opened without the mutex: `opened` is how that went. Where an entry changed
// meanwhile, the content may be that of another commit than the metadata, and both are looked for
// again.
Error Accept(SessionState& state, const std::string& url, const OxString& text, Error opened,
             Finding* finding) OX_REQUIRES(state.mutex) {
  Error error = std::move(opened);
  if (finding->changes != state.cache.Account().Changes()) {
    *finding = Finding();
    if (Error failed = Locate(state, text, finding)) return failed;
    error = TakeContent(OpenByPath(state, finding->entry.path), finding);
  }
  if (!error) error = CheckSeal(state, url, finding);
  if (error.kind == ErrorKind::kDamaged) {
    CacheValue* value = state.cache.Find(text);
    if (value != nullptr) RemoveDamaged(state, *value);
  }
  if (!error) NoteUse(state, *finding);
  return error;
}

// Opening takes about as long as finding, and other threads may find meanwhile.
Error FindAndOpen(SessionState& state, const std::string& url, const OxString& text,
                  Finding* finding) {
  {
    const MutexLock lock(state.mutex);
    if (Error error = Locate(state, text, finding)) return error;
  }
  Error opened = TakeContent(OpenByPath(state, finding->entry.path), finding);
  const MutexLock lock(state.mutex);
  return Accept(state, url, text, std::move(opened), finding);
}

// Reads and opens both files of the entry without the mutex. False where anything about them is not
// as usual.
bool ReadFiles(SessionState& state, const std::string& url, Finding* finding) {
  FetchedEntry& entry = finding->entry;
  finding->changes = state.ChangesSoFar();
  entry.path = state.cacheDirectory + "/" + internal::ContentName(url);
  const std::string path = entry.path + format::kMetadataSuffix;
  const UniqueFd file = OpenLocked(state, path);
  struct stat status;
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      !internal::ReadText(file.Get(), &entry.metadata) ||
      static_cast<std::size_t>(status.st_size) != entry.metadata.size()) {
    return false;
  }
  finding->lastUse = internal::ToNanoseconds(status.st_mtim);
  return !internal::CheckMetadata(entry.metadata) &&
         !TakeContent(OpenLocked(state, entry.path), finding);
}

// The manager lists the entry and takes what was read of its metadata over. False where it does
// not, or an entry changed since.
bool ConfirmFiles(SessionState& state, const OxString& text, const OxString& metadata,
                  const Finding& finding) OX_REQUIRES(state.mutex) {
  internal::RunningCache& cache = state.cache;
  if (cache.EnsureCurrent() || finding.changes != cache.Account().Changes()) return false;
  CacheValue* value = cache.FindToReplace(text, metadata);
  return value != nullptr && internal::ContentPath(*value) == finding.entry.path;
}

// While another thread has the mutex the files are read without waiting for it. One after the other
// otherwise: then a miss costs no look at the disk.
Error Find(SessionState& state, const std::string& url, const OxString& text, Finding* finding) {
  if (state.mutex.IsTaken() && ReadFiles(state, url, finding)) {
    const OxString metadata = internal::ToOxString(finding->entry.metadata);
    const MutexLock lock(state.mutex);
    if (ConfirmFiles(state, text, metadata, *finding)) {
      return Accept(state, url, text, {}, finding);
    }
  }
  *finding = Finding();
  return FindAndOpen(state, url, text, finding);
}

// Removes the entry unless another one has taken its place meanwhile.
void RemoveIfUnchanged(SessionState& state, const OxString& text, const Finding& finding)
    OX_REQUIRES(state.mutex) {
  if (state.cache.EnsureCurrent()) return;
  CacheValue* value = state.cache.Find(text);
  struct stat now;
  if (value == nullptr || lstat(finding.entry.path.c_str(), &now) != 0) return;
  if (now.st_ino == finding.content.st_ino && now.st_dev == finding.content.st_dev) {
    RemoveDamaged(state, *value);
  }
}

// Reads the whole content, so not under the mutex.
Error CheckSum(SessionState& state, const OxString& text, const Finding& finding) {
  std::uint32_t sum = 0;
  if (!internal::SumContent(finding.entry.content.Get(), &sum)) {
    return SystemError("cannot read the content", finding.entry.path);
  }
  const MutexLock lock(state.mutex);
  if (sum == *finding.expectedSum) {
    state.known.Add(finding.fingerprint, state.cache.Account().Entries());
    return {};
  }
  RemoveIfUnchanged(state, text, finding);
  return Damaged(finding.entry.path);
}

Error FindAndCheck(SessionState& state, const std::string& url, Finding* finding) {
  if (Error invalid = internal::CheckUrl(url)) return invalid;
  const OxString text = internal::ToOxString(url);
  const internal::EvictionNews news(state);
  if (Error error = Find(state, url, text, finding)) return error;
  return finding->expectedSum ? CheckSum(state, text, *finding) : Error{};
}

}  // namespace

std::optional<FetchedEntry> CacheSession::Fetch(const std::string& url, Error* error) {
  std::optional<FetchedEntry> found;
  *error = internal::Perform(*state_, [&]() -> Error {
    FetchedEntry entry;
    Error result = internal::FetchEntry(*state_, url, &entry);
    if (internal::IsMissing(result)) ++state_->counts.misses;
    if (result) return result;
    ++state_->counts.hits;
    found = std::move(entry);
    return result;
  });
  return found;
}

}  // namespace ox::session

namespace ox::internal {

bool IsMissing(const Error& error) {
  return error.kind == ErrorKind::kNotFound || error.kind == ErrorKind::kDamaged;
}

Error FetchEntry(SessionState& state, const std::string& url, session::FetchedEntry* entry) {
  session::Finding finding;
  Error error = session::FindAndCheck(state, url, &finding);
  if (error.kind == ErrorKind::kDamaged && !state.options.reportDamaged) return NoEntry();
  if (!error) *entry = std::move(finding.entry);
  return error;
}

}  // namespace ox::internal

#include "tools/oxcache/context.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <thread>
#include <utility>

#include "session/durable_io.h"
#include "session/module_location.h"
#include "tools/oxcache/byte_stream.h"
#include "tools/oxcache/configuration.h"
#include "tools/oxcache/default_directory.h"
#include "tools/oxcache/module_path.h"
#include "tools/oxcache/signals.h"
#include "tools/oxcache/temporary_file.h"
#include "tools/oxcache/text.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/format.h>

namespace ox::tools {
namespace {

using internal::Survey;
using session::CacheLimits;
using session::CacheSession;
using session::SessionOptions;

constexpr std::chrono::milliseconds kBetweenOpenings{100};

// The parent of a file system's root is in another file system or, for "/", the same directory.
bool IsRootOfFileSystem(const std::string& directory) {
  struct stat own;
  struct stat parent;
  if (stat(directory.c_str(), &own) != 0 || stat((directory + "/..").c_str(), &parent) != 0) {
    return false;
  }
  return own.st_dev != parent.st_dev || own.st_ino == parent.st_ino;
}

// A file system check needs that directory, so the user did not put it there.
void LeaveOutLostAndFound(const std::string& directory, std::vector<std::string>* names) {
  const auto found = std::find(names->begin(), names->end(), "lost+found");
  if (found != names->end() && internal::IsOwnDirectory(directory + "/lost+found") &&
      IsRootOfFileSystem(directory)) {
    names->erase(found);
  }
}

// To the module a configuration that it cannot read is none, and it would delete every entry. It
// follows no link.
Error CheckConfiguration(const std::string& directory) {
  const std::string path = ConfigurationPath(directory);
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd.IsOpen()) return errno == ENOENT ? Error{} : SystemError("cannot read", path);
  struct stat status;
  if (fstat(fd.Get(), &status) == 0 && S_ISREG(status.st_mode)) return {};
  return MakeError(ErrorKind::kInputOutput, "not a regular file: " + path);
}

// A configuration may be being written, or was when the power went.
bool IsForeign(const std::string& name) {
  return !IsTemporaryName(name);
}

bool HoldsAnything(const Survey& survey) {
  return !survey.entries.empty() || !survey.contentWithoutMetadata.empty() ||
         !survey.metadataWithoutContent.empty() ||
         std::any_of(survey.foreignFiles.begin(), survey.foreignFiles.end(), IsForeign);
}

SessionOptions ForSession(const GlobalOptions& options) {
  SessionOptions result;
  result.directory = options.directory;
  result.modulePath = options.modulePath;
  result.durability = options.durability;
  result.allowDeletingAll = options.force;
  return result;
}

}  // namespace

Error SurveyIfThere(const std::string& directory, Survey* survey) {
  *survey = {};
  if (access(directory.c_str(), F_OK) != 0 && errno == ENOENT) return {};
  if (Error error = internal::SurveyDirectory(directory, survey)) return error;
  LeaveOutLostAndFound(directory, &survey->foreignFiles);
  return {};
}

Context::Context(GlobalOptions options) : options_(std::move(options)) {
  if (options_.directory.empty()) options_.directory = DefaultDirectory();
  options_.modulePath = options_.modulePath.empty() ? internal::DefaultModulePath()
                                                    : TypedModulePath(options_.modulePath);
}

CacheSession* Context::Session(Purpose purpose, Error* error) {
  *error = {};
  if (session_ != nullptr) return session_.get();
  *error = purpose == Purpose::kStore ? PrepareToStore() : RequireCache();
  if (*error) return nullptr;
  session_ = OpenSession(error);
  return session_.get();
}

// Tries as long as the user is willing to wait for another process.
std::unique_ptr<CacheSession> Context::OpenSession(Error* error) const {
  const auto start = std::chrono::steady_clock::now();
  for (bool isTold = false;; isTold = true) {
    auto session = CacheSession::Open(ForSession(options_), error);
    if (session != nullptr || error->kind != ErrorKind::kInUse) return session;
    if (std::chrono::steady_clock::now() - start >= options_.wait) return nullptr;
    if (!isTold) Tell(error->Message() + "; waiting");
    std::this_thread::sleep_for(kBetweenOpenings);
  }
}

// A directory without a configuration gets the default one. With entries in it that is an error,
// since a start would delete them.
Error Context::PrepareToStore() {
  if (!HasConfiguration(options_.directory)) {
    Survey survey;
    if (Error error = SurveyIfThere(options_.directory, &survey)) return error;
    if (HoldsAnything(survey) && !options_.force) {
      return MakeError(ErrorKind::kConfiguration,
                       survey.entries.empty()
                           ? options_.directory + " is not empty and has no file-cache.conf"
                           : options_.directory + " has " + EntriesText(survey.entries.size()) +
                                 " and no file-cache.conf: a start would delete all of them");
    }
    if (!survey.entries.empty()) {
      Error error;
      if (OpenSession(&error) == nullptr) return error;
    }
    return WriteDefaultConfiguration(options_.directory);
  }
  CacheLimits limits;
  if (Error error = Limits(&limits)) return error;
  if (limits.maxEntries > 0) return {};
  return MakeError(ErrorKind::kRefused,
                   "the configuration admits no entry, MAX_CACHE_ENTRIES is 0 or missing in " +
                       ConfigurationPath(options_.directory) + "; " + InitCommand(limits) +
                       " writes one that does");
}

// So that a directory that is no cache does not get a lock file.
Error Context::RequireCache() {
  if (Error error = CheckDirectory()) return error;
  if (HasConfiguration(options_.directory)) return {};
  Survey survey;
  if (Error error = SurveyIfThere(options_.directory, &survey)) return error;
  if (!survey.entries.empty()) return {};
  return MakeError(ErrorKind::kNotFound, "no cache in " + options_.directory);
}

Error Context::CheckDirectory() const {
  struct stat status;
  if (stat(options_.directory.c_str(), &status) == 0) return CheckConfiguration(options_.directory);
  if (errno != ENOENT) return SystemError("cannot look at the directory", options_.directory);
  return MakeError(ErrorKind::kNotFound, "no such directory: " + options_.directory);
}

Error Context::Limits(CacheLimits* limits) {
  if (session_ != nullptr) {
    *limits = session_->Limits();
    return {};
  }
  if (Error error = CheckDirectory()) return error;
  return session::ReadLimits(options_.directory, options_.modulePath, limits);
}

Error Context::Inspect(CacheLimits* limits, Survey* survey) {
  if (Error error = Limits(limits)) return error;
  return SurveyIfThere(limits->cacheDirectory, survey);
}

ExitStatus Context::Print(const std::string& text) {
  const Error error = WriteBytes(STDOUT_FILENO, "standard output", text.data(), text.size());
  return error ? Fail(error) : ExitStatus::kDone;
}

void Context::Tell(const std::string& text) const {
  std::string line = "oxcache: ";
  if (line_ > 0) line += "line " + std::to_string(line_) + ": ";
  line += WithoutControls(text) + "\n";
  std::fputs(line.c_str(), stderr);
}

// Names the directory where the entries are now.
std::string Context::InitCommand(const CacheLimits& limits) const {
  std::string command = "\"oxcache init";
  if (HasConfiguration(options_.directory)) command += " --force";
  if (limits.cacheDirectory != options_.directory) {
    command += " --directory " + limits.cacheDirectory;
  }
  return command + "\"";
}

std::string Context::Hint(ErrorKind kind) {
  CacheLimits limits;
  if (kind != ErrorKind::kConfiguration || Limits(&limits) || limits.maxEntries > 0) return "";
  return "; " + InitCommand(limits) +
         " writes limits under which entries stay; --force starts anyway and deletes them";
}

bool Context::NoteLostReader(const Error& error) {
  if (error.systemError != EPIPE || !LostReaderEndsProgram()) return false;
  hasLostReader_ = true;
  return true;
}

ExitStatus Context::Fail(const Error& error) {
  if (NoteLostReader(error)) return StatusOf(error.kind);
  const bool isMemory = error.kind == ErrorKind::kOutOfMemory;
  Tell(isMemory ? "out of memory" : error.Message() + Hint(error.kind));
  return StatusOf(error.kind);
}

}  // namespace ox::tools

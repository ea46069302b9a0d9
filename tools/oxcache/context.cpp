#include "tools/oxcache/context.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "session/session_names.h"
#include "tools/oxcache/byte_stream.h"
#include "tools/oxcache/configuration.h"
#include "tools/oxcache/module_path.h"
#include "tools/oxcache/text.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/format.h>

namespace ox::tools {
namespace {

using session::CacheLimits;
using session::CacheSession;
using session::SessionOptions;
using internal::Survey;

Error SurveyIfThere(const std::string& directory, Survey* survey) {
  *survey = {};
  if (access(directory.c_str(), F_OK) != 0 && errno == ENOENT) return {};
  return internal::SurveyDirectory(directory, survey);
}

// The module takes one that it cannot read for none, and would delete every entry. It follows no
// link.
Error CheckConfiguration(const std::string& directory) {
  const std::string path = ConfigurationPath(directory);
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd.IsOpen()) return errno == ENOENT ? Error{} : SystemError("cannot read", path);
  struct stat status;
  if (fstat(fd.Get(), &status) == 0 && S_ISREG(status.st_mode)) return {};
  return MakeError(ErrorKind::kInputOutput, "not a regular file: " + path);
}

bool IsStranger(const std::string& name) {
  // A configuration that is being written, or was when the power went.
  return name.rfind(std::string(format::kConfigurationFileName) + ".", 0) != 0;
}

bool HoldsAnything(const Survey& survey) {
  return !survey.entries.empty() || !survey.contentWithoutMetaData.empty() ||
         !survey.metaDataWithoutContent.empty() ||
         std::any_of(survey.strangers.begin(), survey.strangers.end(), IsStranger);
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

ExitStatus StatusOf(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::kNone:
      return ExitStatus::kDone;
    case ErrorKind::kNotFound:
    case ErrorKind::kRefused:
    case ErrorKind::kConfiguration:
    case ErrorKind::kInUse:
      return ExitStatus::kNotDone;
    case ErrorKind::kInvalidArgument:
      return ExitStatus::kUsage;
    case ErrorKind::kModule:
    case ErrorKind::kInputOutput:
    case ErrorKind::kOutOfMemory:
      break;
  }
  return ExitStatus::kInputOutput;
}

Context::Context(GlobalOptions options) : options_(std::move(options)) {
  if (options_.directory.empty()) options_.directory = DefaultDirectory();
  options_.modulePath =
      options_.modulePath.empty() ? DefaultModulePath() : TypedModulePath(options_.modulePath);
}

CacheSession* Context::Session(Purpose purpose, Error* error) {
  *error = {};
  if (session_ != nullptr) return session_.get();
  *error = purpose == Purpose::kStore ? PrepareToStore() : RequireCache();
  if (*error) return nullptr;
  session_ = CacheSession::Open(ForSession(options_), error);
  return session_.get();
}

// Leaves a directory that can be stored into: a cache without a configuration would refuse, and
// one with entries would lose them.
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
      if (CacheSession::Open(ForSession(options_), &error) == nullptr) return error;
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

// Not even a lock file is left in a directory that is no cache.
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
  const Error error = WriteAll(STDOUT_FILENO, "standard output", text.data(), text.size());
  return error ? Fail(error) : ExitStatus::kDone;
}

void Context::Tell(const std::string& text) const {
  std::string line = "oxcache: ";
  if (line_ > 0) line += "line " + std::to_string(line_) + ": ";
  line += WithoutControls(text) + "\n";
  std::fputs(line.c_str(), stderr);
}

// With the directory where the entries are now.
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

ExitStatus Context::Fail(const Error& error) {
  const bool isMemory = error.kind == ErrorKind::kOutOfMemory;
  Tell(isMemory ? "out of memory" : error.Message() + Hint(error.kind));
  return StatusOf(error.kind);
}

}  // namespace ox::tools

// What the commands of one run share: where the cache is, the session, and the way to report.
#ifndef OX_TOOLS_OXCACHE_CONTEXT_H_
#define OX_TOOLS_OXCACHE_CONTEXT_H_

#include <chrono>
#include <memory>
#include <string>

#include "session/survey.h"
#include "tools/oxcache/exit_status.h"
#include <oxfilecache/session.h>

namespace ox::tools {

struct GlobalOptions {
  std::string directory;   // empty: the user's cache directory
  std::string modulePath;  // empty: looked for
  session::Durability durability = session::Durability::kProcess;
  bool force = false;
  // For another process that has the cache.
  std::chrono::seconds wait{0};
};

class Context {
 public:
  enum class Purpose { kUse, kStore };

  explicit Context(GlobalOptions options);

  const GlobalOptions& Options() const { return options_; }

  // The session, opened by the first call; null and an error otherwise. kStore writes the default
  // configuration into an empty or a new directory first; kUse needs a cache that exists.
  session::CacheSession* Session(Purpose purpose, Error* error);
  bool HasSession() const { return session_ != nullptr; }

  // kNotFound when there is no such directory; an error too when it has a configuration that the
  // module would not read.
  Error CheckDirectory() const;
  // The limits without opening a session, or the open session's.
  Error Limits(session::CacheLimits* limits);
  // The limits and what the cache directory holds: nothing when the configuration names one that
  // does not exist yet.
  Error Inspect(session::CacheLimits* limits, internal::Survey* survey);

  // Data, to standard output.
  ExitStatus Print(const std::string& text);
  // Text for a person, to standard error.
  void Tell(const std::string& text) const;
  // Tells the error and what can be done about it. Tells nothing when NoteLostReader is true.
  ExitStatus Fail(const Error& error);
  // True when whoever read the output has closed it, which is no error but ends the program, as it
  // ends cat or ls. Commands of many steps stop then.
  bool NoteLostReader(const Error& error);
  bool HasLostReader() const { return hasLostReader_; }
  // The line that messages are about, in a batch; 0 for none.
  void SetLine(unsigned line) { line_ = line; }

 private:
  Error PrepareToStore();
  std::unique_ptr<session::CacheSession> OpenSession(Error* error) const;
  Error RequireCache();
  std::string InitCommand(const session::CacheLimits& limits) const;
  std::string Hint(ErrorKind kind);

  GlobalOptions options_;
  std::unique_ptr<session::CacheSession> session_;
  unsigned line_ = 0;
  bool hasLostReader_ = false;
};

// What the directory holds, nothing when it does not exist. Without the directory "lost+found" in
// the root of a file system.
Error SurveyIfThere(const std::string& directory, internal::Survey* survey);

}  // namespace ox::tools

#endif

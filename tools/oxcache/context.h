// What the commands of one run share: where the cache is, the session, and the way to report.
#ifndef OX_TOOLS_OXCACHE_CONTEXT_H_
#define OX_TOOLS_OXCACHE_CONTEXT_H_

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
};

class Context {
 public:
  enum class Purpose { kUse, kStore };

  explicit Context(GlobalOptions options);

  const GlobalOptions& Options() const { return options_; }

  // The session, opened by the first call; null and an error otherwise. To store into an empty or a
  // new directory writes a configuration first; to use asks for a cache that is there already.
  session::CacheSession* Session(Purpose purpose, Error* error);

  // kNotFound when there is no such directory; an error too when it has a configuration that the
  // module would not read.
  Error CheckDirectory() const;
  // The limits without opening a session, or the open session's.
  Error Limits(session::CacheLimits* limits);
  // And what the cache directory holds: nothing when the configuration names one that is not there
  // yet.
  Error Inspect(session::CacheLimits* limits, internal::Survey* survey);

  // Data, to standard output.
  ExitStatus Print(const std::string& text);
  // Text for a person, to standard error.
  void Tell(const std::string& text) const;
  // Tells the error and the way out where there is one.
  ExitStatus Fail(const Error& error);
  // The line that messages are about, in a batch; 0 for none.
  void SetLine(unsigned line) { line_ = line; }

 private:
  Error PrepareToStore();
  Error RequireCache();
  std::string InitCommand(const session::CacheLimits& limits) const;
  std::string Hint(ErrorKind kind);

  GlobalOptions options_;
  std::unique_ptr<session::CacheSession> session_;
  unsigned line_ = 0;
};

}  // namespace ox::tools

#endif

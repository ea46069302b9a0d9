// Errors of the host kit: values, never thrown, never printed.
#ifndef OXFILECACHE_ERROR_H_
#define OXFILECACHE_ERROR_H_

#include <string>

namespace ox {

enum class ErrorKind {
  kNone,             // success
  kInvalidArgument,  // the caller's URL, metadata or option cannot be taken
  kNotFound,         // no entry of that URL
  kRefused,          // the limits do not allow it
  kConfiguration,    // "file-cache.conf" would make a start delete what is there
  kInUse,            // another process, or another session, has the directory
  kModule,           // the shared library cannot be loaded
  kInputOutput,      // a system call failed: path and systemError tell which
  kOutOfMemory,
};

struct Error {
  ErrorKind kind = ErrorKind::kNone;
  std::string detail;   // what was being done or what is wrong, a clause without a full stop
  std::string path;     // the file concerned, or empty
  int systemError = 0;  // errno, or 0

  explicit operator bool() const { return kind != ErrorKind::kNone; }
  // One line for a person: detail, path, errno's text.
  std::string Message() const;
};

Error MakeError(ErrorKind kind, std::string detail);
// kInputOutput with the path and the errno of the moment.
Error SystemError(std::string detail, std::string path);

}  // namespace ox

#endif

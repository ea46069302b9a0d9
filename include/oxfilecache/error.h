// Errors of the session and of what builds on it: values, never thrown, never printed.
#ifndef OXFILECACHE_ERROR_H_
#define OXFILECACHE_ERROR_H_

#include <string>

namespace ox {

// What went wrong, for a program to decide on.
enum class ErrorKind {
  kNone,             // success
  kInvalidArgument,  // the caller's URL, metadata or option cannot be taken
  kNotFound,         // no entry of that URL
  kRefused,          // the limits do not allow it
  kConfiguration,    // with "file-cache.conf" as it is, a start would delete what is there
  kInUse,            // another process, or another session of this one, has the directory
  kModule,           // the shared library cannot be loaded
  kInputOutput,      // a system call failed: path and systemError tell which
  kOutOfMemory,      // the other fields may be empty
  kDamaged,          // the entry is not what was committed; a session has deleted it
  kProducer,         // the producer of FetchOrStore threw an exception
  kCancelled,        // the caller's own callback ended it
};

// One error, or success. True in a condition when it is an error:
//
//   if (Error error = session.Remove(url)) Report(error.Message());
//
// Copies are independent of each other. Threads: as any plain value.
struct Error {
  ErrorKind kind = ErrorKind::kNone;  // kNone: success
  std::string detail;   // what was being done or what is wrong, a clause without a full stop
  std::string path;     // the file concerned, or empty
  int systemError = 0;  // errno, or 0

  // True when this is an error.
  explicit operator bool() const { return kind != ErrorKind::kNone; }
  // One line for a person: detail, path, errno's text.
  std::string Message() const;
};

// An error without a path and without an errno.
Error MakeError(ErrorKind kind, std::string detail);
// kInputOutput with the path and the errno of the moment.
Error SystemError(std::string detail, std::string path);

}  // namespace ox

#endif

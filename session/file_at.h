// Where the system looks a file up: from a directory that is held open, or by its whole path.
// Looking up a whole path walks through every directory above the file.
#ifndef OX_SESSION_FILE_AT_H_
#define OX_SESSION_FILE_AT_H_

#include <fcntl.h>

#include <string>

namespace ox::internal {

// Refers to text of the caller's: for the length of one call.
struct FileAt {
  // Whoever has nothing but a path may pass it where a FileAt is asked for.
  FileAt(const std::string& wholePath) : path(wholePath.c_str()) {}
  FileAt(int heldDirectory, const char* name) : directory(heldDirectory), path(name) {}

  int directory = AT_FDCWD;
  const char* path;
};

}  // namespace ox::internal

#endif

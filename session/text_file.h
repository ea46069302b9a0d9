// Files that hold a text of which the module reads the beginning alone.
#ifndef OX_SESSION_TEXT_FILE_H_
#define OX_SESSION_TEXT_FILE_H_

#include <string>

namespace ox::internal {

// The first 1,024 bytes, or as many as there are. False with errno.
bool ReadText(int file, std::string* text);

// Whether this is no metadata that was ever committed: none is empty or has a NUL. A power cut
// leaves both where a file's length has reached the medium before its bytes.
bool LacksItsBytes(const std::string& metadata);

}  // namespace ox::internal

#endif

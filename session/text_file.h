// Files that hold a text of which the module reads the beginning alone.
#ifndef OX_SESSION_TEXT_FILE_H_
#define OX_SESSION_TEXT_FILE_H_

#include <string>

namespace ox::internal {

// The first 1,024 bytes, or as many as there are. False with errno.
bool ReadText(int file, std::string* text);

}  // namespace ox::internal

#endif

#include "session/text_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include <oxfilecache/format.h>

namespace ox::internal {

bool ReadText(int file, std::string* text) {
  text->assign(format::kTextBytes, '\0');
  std::size_t done = 0;
  while (done < text->size()) {
    const ssize_t part = read(file, text->data() + done, text->size() - done);
    if (part < 0 && errno == EINTR) continue;
    if (part < 0) return false;
    if (part == 0) break;
    done += static_cast<std::size_t>(part);
  }
  text->resize(done);
  return true;
}

bool LacksItsBytes(const std::string& metadata) {
  return metadata.empty() || metadata.find('\0') != metadata.npos;
}

}  // namespace ox::internal

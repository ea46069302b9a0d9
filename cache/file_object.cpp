#include "cache/file_object.h"

#include <oxfilecache/format.h>

namespace ox::core::cache {

std::uint32_t ReadText(os::filesystem::File& file, TextBuffer* buffer) {
  std::uint32_t count = static_cast<std::uint32_t>(file.Read(format::kTextBytes, buffer->text));
  if (count > format::kTextBytes) count = format::kTextBytes;
  buffer->text[count] = '\0';
  return count;
}

}  // namespace ox::core::cache

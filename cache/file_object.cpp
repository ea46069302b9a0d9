#include "cache/file_object.h"

namespace ox::core::cache {

std::uint32_t ReadText(os::filesystem::File& file, TextBuffer* buffer) {
  std::uint32_t count = static_cast<std::uint32_t>(file.Read(kTextBytes, buffer->text));
  if (count > kTextBytes) count = 0;
  buffer->text[count] = '\0';
  return count;
}

}  // namespace ox::core::cache

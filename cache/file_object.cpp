#include "cache/file_object.h"

#include <oxfilecache/format.h>

namespace ox::core::cache {

os::filesystem::File* MakeFile() {
  os::filesystem::File* file = services.fileSystem->CreateFile();
  if (file == nullptr) services.hasStartFailed = true;
  return file;
}

std::uint32_t ReadText(os::filesystem::File& file, TextBuffer* buffer) {
  std::uint32_t count = static_cast<std::uint32_t>(file.Read(format::kTextBytes, buffer->text));
  if (count > format::kTextBytes) count = 0;
  buffer->text[count] = '\0';
  return count;
}

}  // namespace ox::core::cache

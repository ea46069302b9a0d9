#include "session/module_text.h"

#include <new>

#include <oxfilecache/allocation.h>

namespace ox::internal {

OxString ToOxString(const std::string& text) {
  const AllocationWatch watch;
  OxString result(text.c_str());
  result.UTF8();
  if (watch.Tripped()) throw std::bad_alloc();
  return result;
}

std::string ContentPath(core::cache::CacheValue& value) {
  const OxString path = value.GetFile();
  std::string text = path.UTF8();
  // The module does not report that memory ran out; then the text is empty.
  if (text.empty()) throw std::bad_alloc();
  return text;
}

}  // namespace ox::internal

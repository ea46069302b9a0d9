#include "session/utf8.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace ox::internal {
namespace {

// Length of the well-formed sequence at `bytes`, of which `left` may be read; 0 when there is none.
std::size_t SequenceLength(const unsigned char* bytes, std::size_t left) {
  const unsigned char first = bytes[0];
  if (first == 0) return 0;
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 0;
  if (length == 0 || length > left || first > 0xF4) return 0;
  std::uint32_t code = first & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((bytes[i] & 0xC0) != 0x80) return 0;
    code = code << 6 | (bytes[i] & 0x3Fu);
  }
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  return code < kSmallest[length] || code > 0x10FFFF || isSurrogate ? 0 : length;
}

}  // namespace

bool IsStrictUtf8(const std::string& text) {
  if (IsAsciiText(text)) return true;
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = SequenceLength(bytes + i, text.size() - i);
    if (length == 0) return false;
    i += length;
  }
  return true;
}

bool IsAsciiText(const std::string& text) {
  // Without leaving early, so that the compiler can look at many bytes at once.
  unsigned int others = 0;
  for (const char c : text)
    others |= static_cast<unsigned int>(static_cast<signed char>(c) <= 0);
  return others == 0;
}

}  // namespace ox::internal

// Parts of a body: Range and Content-Range.
#ifndef OX_HTTP_BYTE_RANGE_H_
#define OX_HTTP_BYTE_RANGE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ox::internal::http {

struct ByteRange {
  std::uint64_t first = 0;
  std::uint64_t bytes = 0;
  std::uint64_t total = 0;  // of the whole body; 0 when unknown
};

// The one range that a Range header asks for of a body of that size. Nothing when it asks for
// several, for none that is there, or in another unit: the whole body is an answer to all of these.
std::optional<ByteRange> ParseRange(std::string_view value, std::uint64_t total);

// Nothing for any other form than "bytes 0-499/1234" and "bytes 0-499/*".
std::optional<ByteRange> ParseContentRange(std::string_view value);

std::string ContentRange(const ByteRange& range);

}  // namespace ox::internal::http

#endif

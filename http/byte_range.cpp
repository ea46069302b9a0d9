#include "http/byte_range.h"

#include <algorithm>

#include "http/header_list.h"

namespace ox::internal::http {
namespace {

std::optional<std::uint64_t> Number(std::string_view text) {
  const auto number = ParseSeconds(text);
  return number ? std::optional<std::uint64_t>(static_cast<std::uint64_t>(*number)) : std::nullopt;
}

}  // namespace

std::optional<ByteRange> ParseRange(std::string_view value, std::uint64_t total) {
  constexpr std::string_view kUnit = "bytes=";
  const std::size_t dash = value.find('-');
  if (value.substr(0, kUnit.size()) != kUnit || dash == std::string_view::npos) return std::nullopt;
  const std::string_view from = Trimmed(value.substr(kUnit.size(), dash - kUnit.size()));
  const std::string_view to = Trimmed(value.substr(dash + 1));
  const auto first = Number(from);
  const auto last = Number(to);
  if ((!from.empty() && !first) || (!to.empty() && !last) || (!first && !last)) return std::nullopt;
  ByteRange range;
  range.total = total;
  if (!first) {
    range.bytes = std::min(*last, total);
    range.first = total - range.bytes;
  } else {
    if (*first >= total || (last && *last < *first)) return std::nullopt;
    range.first = *first;
    range.bytes = (last ? std::min(*last, total - 1) : total - 1) - *first + 1;
  }
  return range.bytes > 0 ? std::optional<ByteRange>(range) : std::nullopt;
}

std::optional<ByteRange> ParseContentRange(std::string_view value) {
  constexpr std::string_view kUnit = "bytes ";
  const std::size_t dash = value.find('-');
  const std::size_t slash = value.find('/');
  if (value.substr(0, kUnit.size()) != kUnit || dash == std::string_view::npos ||
      slash == std::string_view::npos || slash < dash) {
    return std::nullopt;
  }
  const auto first = Number(value.substr(kUnit.size(), dash - kUnit.size()));
  const auto last = Number(value.substr(dash + 1, slash - dash - 1));
  const std::string_view rest = value.substr(slash + 1);
  const auto total = rest == "*" ? std::optional<std::uint64_t>(0) : Number(rest);
  if (!first || !last || !total || *last < *first || (*total != 0 && *total <= *last)) {
    return std::nullopt;
  }
  return ByteRange{*first, *last - *first + 1, *total};
}

std::string ContentRange(const ByteRange& range) {
  return "bytes " + std::to_string(range.first) + "-" +
         std::to_string(range.first + range.bytes - 1) + "/" + std::to_string(range.total);
}

}  // namespace ox::internal::http

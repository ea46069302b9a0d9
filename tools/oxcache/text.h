// Numbers, ages and foreign text as a person reads them.
#ifndef OX_TOOLS_OXCACHE_TEXT_H_
#define OX_TOOLS_OXCACHE_TEXT_H_

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace ox::tools {

// "812", "64K", "1.5M": powers of 1024.
std::string SizeText(std::uint64_t bytes);

// "1 entry", "2 entries".
std::string EntriesText(std::uint64_t count);

// Whole seconds since then, 0 for the future.
std::int64_t AgeSeconds(const timespec& then);
// "45s", "12m", "3h", "9d".
std::string AgeText(std::int64_t seconds);

// "2026-01-31T12:00:00Z"
std::string UtcText(std::time_t time);

// Right-aligned to `width`.
std::string Padded(const std::string& text, std::size_t width);

// The first line, with "?" for what is not printable ASCII: a terminal might obey it.
std::string FirstLine(std::string_view text);

// With "?" for control characters, also the UTF-8 ones beyond ASCII, for paths in messages.
std::string WithoutControls(std::string text);

// Printable ASCII and nothing else.
bool IsPlain(std::string_view text);

}  // namespace ox::tools

#endif

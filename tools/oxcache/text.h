// Numbers, ages, and text from files as a person reads them on a terminal.
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

// The first line, with "?" for every byte that is not printable ASCII: control characters could
// change the terminal.
std::string FirstLine(std::string_view text);

// With "?" for control characters and for bytes that are not UTF-8, for paths in messages.
std::string WithoutControls(const std::string& text);

// A word as it is when it is harmless on a terminal; otherwise as bash takes it, $'...', with
// control characters and bytes that are not UTF-8 as \xNN.
std::string Quoted(const std::string& text);

// Whether every byte is printable ASCII.
bool IsPlain(std::string_view text);

}  // namespace ox::tools

#endif

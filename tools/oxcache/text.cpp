#include "tools/oxcache/text.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "session/utf8.h"

namespace ox::tools {
namespace {

bool IsPlainCharacter(char c) {
  return c >= 0x20 && c <= 0x7E;
}

// One UTF-8 character; empty when there is none.
std::string CharacterAt(const std::string& text, std::size_t position) {
  for (std::size_t bytes = 1; bytes <= 4 && position + bytes <= text.size(); ++bytes) {
    std::string character = text.substr(position, bytes);
    if (internal::IsStrictUtf8(character)) return character;
  }
  return "";
}

// Those of ASCII and U+0080 to U+009F.
bool IsControl(const std::string& character) {
  const auto first = static_cast<unsigned char>(character[0]);
  return first < 0x20 || first == 0x7F ||
         (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

}  // namespace

std::string SizeText(std::uint64_t bytes) {
  constexpr std::array<char, 6> kUnits = {'K', 'M', 'G', 'T', 'P', 'E'};
  if (bytes < 1024) return std::to_string(bytes);
  double value = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  // What would print as 1024 of a unit is 1 of the next.
  while (value >= 1023.95 && unit + 1 < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%.1f", value);
  std::string result = text.data();
  if (result.size() > 2 && result.substr(result.size() - 2) == ".0")
    result.resize(result.size() - 2);
  return result + kUnits[unit];
}

std::string EntriesText(std::uint64_t count) {
  return std::to_string(count) + (count == 1 ? " entry" : " entries");
}

std::int64_t AgeSeconds(const timespec& then) {
  const std::int64_t seconds = std::time(nullptr) - then.tv_sec;
  return std::max<std::int64_t>(seconds, 0);
}

std::string AgeText(std::int64_t seconds) {
  if (seconds < 60) return std::to_string(seconds) + "s";
  if (seconds < 3600) return std::to_string(seconds / 60) + "m";
  if (seconds < 86400) return std::to_string(seconds / 3600) + "h";
  return std::to_string(seconds / 86400) + "d";
}

std::string UtcText(std::time_t time) {
  tm parts;
  std::array<char, 32> text;
  if (gmtime_r(&time, &parts) == nullptr) return "";
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return std::string(text.data(), length);
}

std::string Padded(const std::string& text, std::size_t width) {
  return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

std::string FirstLine(std::string_view text) {
  std::string line(text.substr(0, text.find_first_of("\r\n")));
  std::replace_if(
      line.begin(), line.end(), [](char c) { return !IsPlainCharacter(c); }, '?');
  return line;
}

std::string WithoutControls(const std::string& text) {
  std::string shown;
  for (std::size_t i = 0; i < text.size();) {
    const std::string character = CharacterAt(text, i);
    shown += character.empty() || IsControl(character) ? "?" : character;
    i += std::max<std::size_t>(character.size(), 1);
  }
  return shown;
}

std::string Quoted(const std::string& text) {
  std::string quoted;
  bool isHarmless = !text.empty() && text.find(' ') == std::string::npos;
  for (std::size_t i = 0; i < text.size();) {
    const std::string character = CharacterAt(text, i);
    if (character.empty() || IsControl(character)) {
      isHarmless = false;
      // One byte after another: a control character may have two.
      std::array<char, 8> digits;
      const unsigned byte = static_cast<unsigned char>(text[i]);
      std::snprintf(digits.data(), digits.size(), "\\x%02x", byte);
      quoted += digits.data();
      ++i;
      continue;
    }
    if (character == "'" || character == "\\") quoted += '\\';
    quoted += character;
    i += character.size();
  }
  return isHarmless ? text : "$'" + quoted + "'";
}

bool IsPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), IsPlainCharacter);
}

}  // namespace ox::tools

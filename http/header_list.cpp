#include "http/header_list.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace ox::internal::http {
namespace {

constexpr std::array<std::string_view, 10> kConnectionHeaders = {"Connection",
                                                                 "Keep-Alive",
                                                                 "Proxy-Authenticate",
                                                                 "Proxy-Authentication-Info",
                                                                 "Proxy-Connection",
                                                                 "Proxy-Authorization",
                                                                 "TE",
                                                                 "Trailer",
                                                                 "Transfer-Encoding",
                                                                 "Upgrade"};

// They are for every recipient. A server that names them in Connection nevertheless must not have
// an answer stored against its own word.
constexpr std::array<std::string_view, 6> kForCaches = {"Age",     "Cache-Control", "Date",
                                                        "Expires", "Pragma",        "Vary"};

char LowerLetter(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsTokenCharacter(char c) {
  const char lower = LowerLetter(c);
  return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') ||
         (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
}

}  // namespace

bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return LowerLetter(x) == LowerLetter(y);
         });
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), LowerLetter);
  return lower;
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool IsToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsTokenCharacter);
}

bool IsFieldValue(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    return c == '\t' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
  });
}

std::optional<std::int64_t> ParseSeconds(std::string_view text) {
  const bool isDigits = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
  if (!isDigits) return std::nullopt;
  std::int64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isTooLarge = result.ec == std::errc::result_out_of_range;
  return isTooLarge ? std::numeric_limits<std::int64_t>::max() : number;
}

const Header* Find(const HeaderList& headers, std::string_view name) {
  const auto found = std::find_if(headers.begin(), headers.end(), [name](const Header& header) {
    return SameName(header.name, name);
  });
  return found != headers.end() ? &*found : nullptr;
}

std::string Combined(const HeaderList& headers, std::string_view name) {
  std::string all;
  for (const Header& header : headers) {
    if (!SameName(header.name, name)) continue;
    if (!all.empty()) all += ", ";
    all += header.value;
  }
  return all;
}

std::optional<std::string_view> Single(const HeaderList& headers, std::string_view name) {
  const Header* found = nullptr;
  for (const Header& header : headers) {
    if (!SameName(header.name, name)) continue;
    if (found != nullptr) return std::nullopt;
    found = &header;
  }
  return found != nullptr ? std::optional<std::string_view>(found->value) : std::nullopt;
}

void Remove(HeaderList* headers, std::string_view name) {
  headers->erase(
      std::remove_if(headers->begin(), headers->end(),
                     [name](const Header& header) { return SameName(header.name, name); }),
      headers->end());
}

void Set(HeaderList* headers, std::string_view name, std::string value) {
  Remove(headers, name);
  headers->push_back({std::string(name), std::move(value)});
}

std::vector<std::string_view> Members(std::string_view value) {
  std::vector<std::string_view> members;
  std::size_t start = 0;
  bool isQuoted = false;
  for (std::size_t i = 0; i <= value.size(); ++i) {
    if (i < value.size()) {
      if (isQuoted && value[i] == '\\') {
        ++i;
        continue;
      }
      if (value[i] == '"') isQuoted = !isQuoted;
      if (isQuoted || value[i] != ',') continue;
    }
    const std::string_view member = Trimmed(value.substr(std::min(start, value.size()), i - start));
    if (!member.empty()) members.push_back(member);
    start = i + 1;
  }
  return members;
}

void RemoveConnectionHeaders(HeaderList* headers) {
  const std::string named = Combined(*headers, "Connection");
  for (const std::string_view name : Members(named)) {
    const bool isForCaches = std::any_of(kForCaches.begin(), kForCaches.end(),
                                         [name](auto one) { return SameName(one, name); });
    if (!isForCaches) Remove(headers, name);
  }
  for (const std::string_view name : kConnectionHeaders)
    Remove(headers, name);
  headers->erase(std::remove_if(headers->begin(), headers->end(),
                                [](const Header& header) {
                                  return !IsToken(header.name) || !IsFieldValue(header.value);
                                }),
                 headers->end());
}

}  // namespace ox::internal::http

#include "http/stored_answer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include <oxfilecache/format.h>

namespace ox::internal::http {
namespace {

constexpr int kVersion = 1;
constexpr char kUrlLine[] = "URL: ";
constexpr char kNumbersLine[] = "HTTP: ";
constexpr char kVariedMark = '>';
// A longer URL stands as its beginning and a sum over all of it.
constexpr std::size_t kMaxUrlBytes = 300;

// What decides about reuse.
constexpr std::array<std::string_view, 7> kEssential = {
    "Vary", "Cache-Control", "Expires", "Date", "Age", "Location", "Content-Encoding"};
// Kept before all others, in this order.
constexpr std::array<std::string_view, 7> kUseful = {
    "ETag",          "Last-Modified", "Content-Type", "Content-Disposition", "Content-Language",
    "Accept-Ranges", "Pragma"};
constexpr std::array<std::string_view, 4> kLast = {"Set-Cookie", "Set-Cookie2", "Server", "Via"};

std::string Encoded(std::string_view value) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7F && c != '%') {
      text += c;
    } else {
      text += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return text;
}

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

std::string Decoded(std::string_view text) {
  if (text.find('%') == std::string_view::npos) return std::string(text);
  std::string value;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? DigitValue(text[i + 1]) : -1;
    const int low = high >= 0 ? DigitValue(text[i + 2]) : -1;
    value += low >= 0 ? static_cast<char>(high * 16 + low) : text[i];
    if (low >= 0) i += 2;
  }
  return value;
}

// FNV-1a, of 64 bits.
std::uint64_t Sum(std::string_view text) {
  std::uint64_t sum = 14695981039346656037U;
  for (const char c : text)
    sum = (sum ^ static_cast<unsigned char>(c)) * 1099511628211U;
  return sum;
}

std::string UrlText(const std::string& url) {
  std::string text = Encoded(url);
  if (text.size() <= kMaxUrlBytes) return text;
  std::array<char, 24> sum{};
  std::snprintf(sum.data(), sum.size(), "...%016llx", static_cast<unsigned long long>(Sum(url)));
  return text.substr(0, kMaxUrlBytes) + sum.data();
}

template <typename Names>
bool Contains(const Names& names, std::string_view name) {
  return std::any_of(names.begin(), names.end(),
                     [name](std::string_view one) { return SameName(one, name); });
}

std::string Line(const Header& header) {
  return header.name + ": " + Encoded(header.value) + "\n";
}

// The metadata while it is put together.
class Text {
 public:
  bool Add(const std::string& line) {
    if (text_.size() + line.size() > format::kTextBytes) return false;
    text_ += line;
    return true;
  }
  template <typename Names>
  bool AddNamed(const HeaderList& headers, const Names& names) {
    bool isWhole = true;
    for (const std::string_view name : names) {
      for (const Header& header : headers)
        if (SameName(header.name, name)) isWhole = Add(Line(header)) && isWhole;
    }
    return isWhole;
  }
  const std::string& Get() const { return text_; }

 private:
  std::string text_;
};

bool AddEssential(const StoredAnswer& answer, const std::string& url, Text* text) {
  std::string numbers = kNumbersLine + std::to_string(kVersion);
  for (const std::int64_t number :
       {std::int64_t{answer.status}, answer.requestTime, answer.responseTime,
        static_cast<std::int64_t>(answer.bodyBytes), static_cast<std::int64_t>(answer.wholeBytes)})
    numbers += " " + std::to_string(number);
  numbers += '\n';
  if (!text->Add(kUrlLine + UrlText(url) + "\n") || !text->Add(numbers)) return false;
  for (const Header& header : answer.varied)
    if (!text->Add(kVariedMark + Line(header))) return false;
  return text->AddNamed(answer.headers, kEssential);
}

// The next line, without its end.
std::string_view TakeLine(std::string_view* rest) {
  const std::size_t end = std::min(rest->find('\n'), rest->size());
  const std::string_view line = rest->substr(0, end);
  rest->remove_prefix(std::min(end + 1, rest->size()));
  return line;
}

bool TakePrefixed(std::string_view* rest, std::string_view prefix, std::string_view* value) {
  const std::string_view line = TakeLine(rest);
  if (line.substr(0, prefix.size()) != prefix) return false;
  *value = line.substr(prefix.size());
  return true;
}

// A number and the blank behind it. Streams would do, but take most of the time of a hit.
template <typename Number>
bool TakeNumber(std::string_view* text, Number* number) {
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), *number);
  if (error != std::errc()) return false;
  text->remove_prefix(static_cast<std::size_t>(end - text->data()));
  if (!text->empty() && text->front() == ' ') text->remove_prefix(1);
  return true;
}

// Any with which sums still fit their type. Other programs may write metadata too.
bool IsTime(std::int64_t seconds) {
  constexpr std::int64_t kFarthest = std::int64_t{1} << 40;
  return seconds > -kFarthest && seconds < kFarthest;
}

bool ParseNumbers(std::string_view text, StoredAnswer* answer) {
  int version = 0;
  return TakeNumber(&text, &version) && version == kVersion && TakeNumber(&text, &answer->status) &&
         TakeNumber(&text, &answer->requestTime) && TakeNumber(&text, &answer->responseTime) &&
         TakeNumber(&text, &answer->bodyBytes) && TakeNumber(&text, &answer->wholeBytes) &&
         text.empty() && IsTime(answer->requestTime) && IsTime(answer->responseTime);
}

void ParseHeader(std::string_view line, StoredAnswer* answer) {
  const bool isVaried = !line.empty() && line.front() == kVariedMark;
  if (isVaried) line.remove_prefix(1);
  const std::size_t colon = line.find(": ");
  if (colon == std::string_view::npos) return;
  Header header{std::string(line.substr(0, colon)), Decoded(line.substr(colon + 2))};
  if (!IsToken(header.name) || !IsFieldValue(header.value)) return;
  (isVaried ? answer->varied : answer->headers).push_back(std::move(header));
}

}  // namespace

std::optional<std::string> ToMetadata(const StoredAnswer& answer, const std::string& url) {
  Text text;
  if (!AddEssential(answer, url, &text)) return std::nullopt;
  text.AddNamed(answer.headers, kUseful);
  for (const Header& header : answer.headers) {
    const std::string& name = header.name;
    if (Contains(kEssential, name) || Contains(kUseful, name) || Contains(kLast, name)) continue;
    text.Add(Line(header));
  }
  text.AddNamed(answer.headers, kLast);
  return text.Get();
}

std::optional<StoredAnswer> FromMetadata(const std::string& metadata, const std::string& url) {
  std::string_view rest = metadata;
  std::string_view value;
  StoredAnswer answer;
  if (!TakePrefixed(&rest, kUrlLine, &value) || value != UrlText(url)) return std::nullopt;
  if (!TakePrefixed(&rest, kNumbersLine, &value) || !ParseNumbers(value, &answer)) {
    return std::nullopt;
  }
  // With one more for the Age of a hit.
  answer.headers.reserve(static_cast<std::size_t>(std::count(rest.begin(), rest.end(), '\n')) + 1);
  while (!rest.empty())
    ParseHeader(TakeLine(&rest), &answer);
  return answer;
}

}  // namespace ox::internal::http

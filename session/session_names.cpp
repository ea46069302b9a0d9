#include "session/session_names.h"

#include <sys/random.h>

#include <cinttypes>
#include <cstdio>

namespace ox::internal {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr std::size_t kSessionDigits = 16;

// 16 hexadecimal digits, "-", decimal digits.
bool IsId(const std::string& text) {
  return text.size() > kSessionDigits + 1 && text.find_first_not_of(kHexDigits) == kSessionDigits &&
         text[kSessionDigits] == '-' &&
         text.find_first_not_of("0123456789", kSessionDigits + 1) == std::string::npos;
}

std::uint64_t RandomNumber() {
  std::uint64_t number = 0;
  // As few bytes as these come whole or, before the kernel has any to give, after a wait.
  while (getrandom(&number, sizeof number, 0) != sizeof number) {
  }
  return number;
}

}  // namespace

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string StagingId(const std::string& name) {
  constexpr std::size_t kPrefix = 3;  // "ox-"
  constexpr std::size_t kSuffix = 5;  // ".part", ".meta"
  if (name.compare(0, kPrefix, "ox-") != 0 || name.size() < kPrefix + kSuffix) return {};
  if (!EndsWith(name, ".part") && !EndsWith(name, ".meta")) return {};
  const std::string id = name.substr(kPrefix, name.size() - kPrefix - kSuffix);
  return IsId(id) ? id : std::string();
}

bool ParseCommitFileName(const std::string& name, std::string* entryName, std::string* id) {
  constexpr std::size_t kSuffix = 7;  // ".commit"
  if (name.size() < format::kContentNameLength + 1 + kSuffix || !EndsWith(name, ".commit"))
    return false;
  *entryName = name.substr(0, format::kContentNameLength);
  *id = name.substr(format::kContentNameLength + 1,
                    name.size() - format::kContentNameLength - 1 - kSuffix);
  return name[format::kContentNameLength] == '.' && format::IsContentName(*entryName) && IsId(*id);
}

IdSource::IdSource() : session_(RandomNumber()) {}

std::string IdSource::Next() {
  char text[40];
  std::snprintf(text, sizeof text, "%016" PRIx64 "-%" PRIu64, session_, ++count_);
  return text;
}

}  // namespace ox::internal

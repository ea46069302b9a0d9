#include "session/session_names.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "session/use_clock.h"

namespace ox::internal {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr std::size_t kSessionDigits = 16;

bool EndsWith(const std::string& text, std::string_view suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// 16 hexadecimal digits, "-", decimal digits.
bool IsId(const std::string& text) {
  return text.size() > kSessionDigits + 1 && text.find_first_not_of(kHexDigits) == kSessionDigits &&
         text[kSessionDigits] == '-' &&
         text.find_first_not_of("0123456789", kSessionDigits + 1) == std::string::npos;
}

std::uint64_t Nanoseconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<std::uint64_t>(ToNanoseconds(time));
}

// Where the kernel has no random number, or none yet, clocks and the process number stand in: the
// number must be unlike any other; it may be guessed.
std::uint64_t UniqueNumber() {
  std::uint64_t number = 0;
  if (getrandom(&number, sizeof number, GRND_NONBLOCK) == sizeof number) return number;
  constexpr std::uint64_t kOddMultiplier = 0x9E3779B97F4A7C15;  // 2^64 divided by the golden ratio
  number = Nanoseconds(CLOCK_REALTIME) * kOddMultiplier + Nanoseconds(CLOCK_BOOTTIME);
  return number * kOddMultiplier + static_cast<std::uint64_t>(getpid());
}

}  // namespace

std::string Joined(std::initializer_list<std::string_view> pieces) {
  std::size_t length = 0;
  for (const std::string_view piece : pieces)
    length += piece.size();
  std::string text(length, '\0');
  char* end = text.data();
  for (const std::string_view piece : pieces)
    end = std::copy(piece.begin(), piece.end(), end);
  return text;
}

std::string StagingId(const std::string& name) {
  constexpr std::size_t kPrefix = kStagedPrefix.size();
  for (const std::string_view suffix :
       {kStagedContentSuffix, kStagedMetadataSuffix, kStagedConfigurationSuffix}) {
    if (name.size() < kPrefix + suffix.size() || !EndsWith(name, suffix)) continue;
    if (name.compare(0, kPrefix, kStagedPrefix) != 0) return {};
    const std::string id = name.substr(kPrefix, name.size() - kPrefix - suffix.size());
    return IsId(id) ? id : std::string();
  }
  return {};
}

bool IsStagedConfigurationName(const std::string& name) {
  return EndsWith(name, kStagedConfigurationSuffix) && !StagingId(name).empty();
}

bool ParseCommitFileName(const std::string& name, std::string* entryName, std::string* id) {
  constexpr std::size_t kSuffix = kCommitSuffix.size();
  if (name.size() < format::kContentNameLength + 1 + kSuffix || !EndsWith(name, kCommitSuffix))
    return false;
  *entryName = name.substr(0, format::kContentNameLength);
  *id = name.substr(format::kContentNameLength + 1,
                    name.size() - format::kContentNameLength - 1 - kSuffix);
  return name[format::kContentNameLength] == '.' && format::IsContentName(*entryName) && IsId(*id);
}

bool IsPermanentSessionName(const std::string& name) {
  return name == kLockFileName || name == kUseOrderFileName ||
         name == format::kConfigurationFileName;
}

bool IsSessionName(const std::string& name) {
  std::string entryName;
  std::string id;
  return IsPermanentSessionName(name) || !StagingId(name).empty() ||
         ParseCommitFileName(name, &entryName, &id);
}

IdSource::IdSource() : session_(UniqueNumber()) {
  for (std::uint64_t rest = session_; prefix_.size() < kSessionDigits; rest >>= 4)
    prefix_ += kHexDigits[rest & 0xF];
  prefix_ += '-';
}

std::string IdSource::Next() {
  return Joined({prefix_, std::to_string(++count_)});
}

}  // namespace ox::internal

#include "session/use_order.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/system_calls.h"
#include "session/durable_io.h"
#include "session/errno_meaning.h"
#include "session/session_names.h"
#include "session/use_clock.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/format.h>

namespace ox::internal {
namespace {

constexpr std::int64_t kSecond = 1000000000;
constexpr std::int64_t kStep = 2;  // seconds: what FAT keeps
// A number, a space, a name of up to 255 bytes and a line feed take less.
constexpr std::uint64_t kLongestLine = 300;

using Times = std::unordered_map<std::string, std::int64_t>;

std::string PathOf(const std::string& directory) {
  return directory + "/" + kUseOrderFileName;
}

std::int64_t EvenSeconds(const timespec& time) {
  return ToNanoseconds(time) / kSecond / kStep * kStep;
}

// From the most recent use on, so that none lies later than it did.
std::string TextOf(const Survey& survey) {
  std::vector<std::int64_t> times;
  std::int64_t bound = INT64_MAX;
  for (auto entry = survey.entries.rbegin(); entry != survey.entries.rend(); ++entry) {
    bound = std::min(EvenSeconds(entry->used), bound - kStep);
    times.push_back(bound);
  }
  std::string text;
  auto time = times.rbegin();
  for (const SurveyedEntry& entry : survey.entries)
    text += std::to_string(*time++) + " " + std::string(entry.name) + "\n";
  return text;
}

struct Order {
  std::string text;
  std::int64_t modified = 0;
};

// A file of more bytes was not made for these entries, and need not fit into the memory.
bool ReadWhole(const std::string& path, std::uint64_t mostBytes, Order* order) {
  const UniqueFd file(OpenRetrying(AT_FDCWD, path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  struct stat status;
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (static_cast<std::uint64_t>(status.st_size) > mostBytes) return false;
  order->modified = ToNanoseconds(status.st_mtim);
  char piece[4096];
  for (;;) {
    const ssize_t bytes = read(file.Get(), piece, sizeof piece);
    if (bytes == 0) return true;
    if (bytes < 0 && errno != EINTR) return false;
    if (bytes > 0) order->text.append(piece, static_cast<std::size_t>(bytes));
  }
}

Times Parse(const std::string& text) {
  Times times;
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    const std::size_t space = text.find(' ', begin);
    if (space >= end) continue;
    const timespec time{static_cast<time_t>(std::strtoll(text.c_str() + begin, nullptr, 10)), 0};
    times[text.substr(space + 1, end - space - 1)] = ToNanoseconds(time);
  }
  return times;
}

Error Keep(const std::string& directory, const std::string& text) {
  const std::string path = PathOf(directory);
  // A session deletes what is left of a staged file.
  const std::string staged = StagedContentPath(directory, IdSource().Next());
  UniqueFd file = CreateNewFile(staged);
  const bool isWritten = file.IsOpen() && WriteAll(file.Get(), text.data(), text.size()) &&
                         SyncFile(file.Get()) && RenameFile(staged, path);
  if (!isWritten) return SystemError("cannot write the order of use", path);
  if (SyncDirectory(directory) || IsLastingRefusal(errno)) return {};
  return SystemError("cannot synchronise", directory);
}

}  // namespace

Error KeepUseOrder(const std::string& directory, const Survey& survey) {
  return Keep(directory, TextOf(survey));
}

void ReadUseOrder(const std::string& directory, Survey* survey) {
  Order order;
  const std::uint64_t mostBytes = (survey->entries.size() + 1) * kLongestLine;
  if (!ReadWhole(PathOf(directory), mostBytes, &order)) return;
  const Times times = Parse(order.text);
  survey->isOrderToStay = times.count(kUseOrderFileName) != 0;
  const std::int64_t latest = survey->isOrderToStay ? order.modified : INT64_MAX;
  for (SurveyedEntry& entry : survey->entries) {
    const auto found = times.find(std::string(entry.name));
    const bool isKept = found != times.end() && ToNanoseconds(entry.used) <= latest;
    if (isKept) entry.used = ToTimespec(found->second);
  }
  std::sort(survey->entries.begin(), survey->entries.end(), IsUsedBefore);
  survey->isOrderKept = true;
}

void SettleUseOrder(const std::string& directory, const Survey& survey) {
  if (!survey.isOrderKept) return;
  bool isSet = true;
  for (const SurveyedEntry& entry : survey.entries) {
    const std::string metadata =
        directory + "/" + std::string(entry.name) + format::kMetadataSuffix;
    isSet = SetFileTime(metadata, ToNanoseconds(entry.used)) && isSet;
  }
  if (!isSet) {
    // Best effort: in a directory that is read-only nothing is stored either.
    const std::string itself = "0 " + std::string(kUseOrderFileName) + "\n";
    if (!survey.isOrderToStay) Keep(directory, itself + TextOf(survey));
    return;
  }
  // Otherwise a power cut could keep the deletion and lose the times.
  const UniqueFd opened(OpenRetrying(AT_FDCWD, directory.c_str(), O_RDONLY | O_DIRECTORY));
  if (opened.IsOpen()) syncfs(opened.Get());
  DeleteFile(PathOf(directory));
}

}  // namespace ox::internal

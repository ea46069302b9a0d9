#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>

#include "tools/oxcache/reports.h"
#include "tools/oxcache/text.h"
#include "tools/oxcache/without_session.h"

namespace ox::tools {
namespace {

using internal::AllocationUnit;
using internal::Survey;
using nlohmann::json;
using session::CacheLimits;

struct AgeClass {
  const char* name;
  std::int64_t below;  // seconds
  std::uint64_t entries = 0;
  std::uint64_t bytes = 0;
};

using AgeClasses = std::array<AgeClass, 5>;

AgeClasses ByAge(const Survey& survey) {
  AgeClasses classes = {{{"under a minute", 60},
                         {"under an hour", 3600},
                         {"under a day", 86400},
                         {"under a week", 7 * 86400},
                         {"older", std::numeric_limits<std::int64_t>::max()}}};
  for (const auto& entry : survey.entries) {
    const std::int64_t age = AgeSeconds(entry.used);
    const auto found = std::find_if(classes.begin(), classes.end(),
                                    [age](const AgeClass& c) { return age < c.below; });
    ++found->entries;
    found->bytes += entry.contentBytes + entry.metadataBytes;
  }
  return classes;
}

std::uint64_t LargestEntry(const Survey& survey) {
  std::uint64_t largest = 0;
  for (const auto& entry : survey.entries) {
    largest = std::max(largest, entry.contentBytes + entry.metadataBytes);
  }
  return largest;
}

// "[######..............]  30%". The bar is full only when nothing is left.
std::string Bar(std::uint64_t used, std::uint64_t limit) {
  constexpr std::size_t kWidth = 30;
  const std::uint64_t share = limit == 0 ? (used > 0 ? 100 : 0) : used * 100 / limit;
  const auto filled = static_cast<std::size_t>(
      limit == 0 ? 0 : std::min<std::uint64_t>(kWidth, used * kWidth / limit));
  return "[" + std::string(filled, '#') + std::string(kWidth - filled, '.') + "] " +
         Padded(std::to_string(share), 3) + "%";
}

std::string UseLine(const char* what, std::uint64_t used, std::uint64_t limit,
                    std::string (*format)(std::uint64_t)) {
  std::array<char, 16> name;
  std::snprintf(name.data(), name.size(), "%-14s", what);
  return name.data() + Bar(used, limit) + "  " + format(used) + " of " + format(limit) + "\n";
}

std::string NumberText(std::uint64_t number) {
  return std::to_string(number);
}

std::string NamesText(const char* what, const std::vector<std::string>& names) {
  if (names.empty()) return "";
  std::string text = std::string(what) + ":\n";
  for (const std::string& name : names)
    text += "  " + FirstLine(name) + "\n";
  return text;
}

std::string Text(const CacheLimits& limits, const Survey& survey) {
  std::string text = "directory     " + WithoutControls(limits.cacheDirectory) + "\n";
  const auto unit = AllocationUnit::Of(limits.cacheDirectory);
  text += UseLine("total size", BytesOnDisk(survey, unit), limits.maxSize, SizeText);
  text += UseLine("entries", survey.entries.size(), limits.maxEntries, NumberText);
  text += UseLine("largest entry", LargestEntry(survey), limits.maxEntrySize, SizeText);
  text += "contents      " + SizeText(survey.bytes) +
          " with their metadata, counted in blocks of " + SizeText(unit.OnDisk(1)) + "\n";
  text += "free space    " + SizeText(internal::FreeBytes(limits.cacheDirectory)) + "\n";
  text += "last used:\n";
  for (const AgeClass& age : ByAge(survey)) {
    std::array<char, 64> line;
    std::snprintf(line.data(), line.size(), "  %-15s %8llu  %s\n", age.name,
                  static_cast<unsigned long long>(age.entries), SizeText(age.bytes).c_str());
    text += line.data();
  }
  return text + NamesText("content without metadata", survey.contentWithoutMetadata) +
         NamesText("metadata without content", survey.metadataWithoutContent) +
         NamesText("unfinished", survey.staging) +
         NamesText("commits that a directory blocks", survey.blockedCommits) +
         NamesText("foreign files", survey.foreignFiles);
}

json Json(const CacheLimits& limits, const Survey& survey) {
  json ages = json::array();
  for (const AgeClass& age : ByAge(survey)) {
    ages.push_back({{"age", age.name}, {"entries", age.entries}, {"bytes", age.bytes}});
  }
  const auto unit = AllocationUnit::Of(limits.cacheDirectory);
  return {{"limits", LimitsJson(limits)},
          {"entries", survey.entries.size()},
          {"bytes", survey.bytes},
          {"bytes_on_disk", BytesOnDisk(survey, unit)},
          {"block_size", unit.OnDisk(1)},
          {"free_bytes", internal::FreeBytes(limits.cacheDirectory)},
          {"largest_entry", LargestEntry(survey)},
          {"last_used", ages},
          {"content_without_metadata", survey.contentWithoutMetadata},
          {"metadata_without_content", survey.metadataWithoutContent},
          {"unfinished", survey.staging},
          {"blocked_commits", survey.blockedCommits},
          {"foreign_files", survey.foreignFiles}};
}

}  // namespace

std::uint64_t BytesOnDisk(const Survey& survey, const AllocationUnit& unit) {
  std::uint64_t bytes = 0;
  for (const auto& entry : survey.entries) {
    bytes += OnDisk(entry, unit);
  }
  return bytes;
}

ExitStatus ShowStatistics(Context& context, bool asJson) {
  CacheLimits limits;
  Survey survey;
  if (Error error = context.Inspect(&limits, &survey)) return context.Fail(error);
  TellWhyNoSession(context, limits.cacheDirectory);
  return context.Print(asJson ? JsonLine(Json(limits, survey)) : Text(limits, survey));
}

}  // namespace ox::tools

#include <nlohmann/json.hpp>
#include <vector>

#include "session/session_names.h"
#include "tools/oxcache/byte_stream.h"
#include "tools/oxcache/reports.h"
#include "tools/oxcache/text.h"
#include <oxfilecache/format.h>

namespace ox::tools {
namespace {

using nlohmann::json;
using session::CacheLimits;
using internal::Survey;
using internal::SurveyedEntry;

// What is ever read back of a metadata file.

// Unreadable metadata is a blank here; "verify" is the command that complains.
std::string MetadataOf(const std::string& directory, const SurveyedEntry& entry) {
  std::string metadata;
  if (ReadMetadata(directory, entry.name, format::kTextBytes, &metadata)) return "";
  return metadata;
}

json EntryJson(const std::string& directory, const SurveyedEntry& entry) {
  return {{"name", entry.name},
          {"size", entry.contentBytes},
          {"metadata_bytes", entry.metaDataBytes},
          {"age", AgeSeconds(entry.used)},
          {"used", UtcText(entry.used.tv_sec)},
          {"metadata", MetadataOf(directory, entry)}};
}

std::string EntryLine(const std::string& directory, const SurveyedEntry& entry) {
  return FirstLine(entry.name) + " " + Padded(std::to_string(entry.contentBytes), 10) + " " +
         Padded(std::to_string(entry.metaDataBytes), 4) + " " +
         Padded(AgeText(AgeSeconds(entry.used)), 4) + " " +
         FirstLine(MetadataOf(directory, entry)) + "\n";
}

}  // namespace

ExitStatus List(Context& context, bool asJson) {
  CacheLimits limits;
  Survey survey;
  if (Error error = context.Inspect(&limits, &survey)) return context.Fail(error);
  std::string text;
  json list = json::array();
  // Most recently used first.
  for (auto entry = survey.entries.rbegin(); entry != survey.entries.rend(); ++entry) {
    if (asJson) {
      list.push_back(EntryJson(limits.cacheDirectory, *entry));
    } else {
      text += EntryLine(limits.cacheDirectory, *entry);
    }
  }
  return context.Print(asJson ? JsonLine(list) : text);
}

ExitStatus ShowLimits(Context& context, bool asJson) {
  CacheLimits limits;
  if (Error error = context.Limits(&limits)) return context.Fail(error);
  if (asJson) return context.Print(JsonLine(LimitsJson(limits)));
  return context.Print("MAX_CACHE_SIZE=" + std::to_string(limits.maxSize) + "\n" +
                       "MAX_CACHE_ENTRIES=" + std::to_string(limits.maxEntries) + "\n" +
                       "MAX_CACHE_ENTRY_SIZE=" + std::to_string(limits.maxEntrySize) + "\n" +
                       "CACHE_DIRECTORY=" + WithoutControls(limits.cacheDirectory) + "\n");
}

json LimitsJson(const CacheLimits& limits) {
  return {{"max_size", limits.maxSize},
          {"max_entries", limits.maxEntries},
          {"max_entry_size", limits.maxEntrySize},
          {"cache_directory", limits.cacheDirectory}};
}

std::string JsonLine(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

Error ReadMetadata(const std::string& directory, const std::string& entryName, std::size_t capacity,
                   std::string* metadata) {
  metadata->clear();
  Error error;
  const auto input =
      Input::OpenEntryFile(directory + "/" + entryName + format::kMetaDataSuffix, &error);
  if (input == nullptr) return error;
  std::vector<char> piece(capacity);
  std::size_t bytes = 0;
  if (error = input->Read(piece.data(), piece.size(), &bytes); error) return error;
  metadata->assign(piece.data(), bytes);
  return {};
}

}  // namespace ox::tools

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <vector>

#include "tools/oxcache/byte_stream.h"
#include "tools/oxcache/reports.h"
#include "tools/oxcache/second_look.h"
#include "tools/oxcache/text.h"
#include "tools/oxcache/without_session.h"
#include <oxfilecache/format.h>

namespace ox::tools {
namespace {

using nlohmann::json;
using session::CacheLimits;
using session::ListedEntry;

struct Listed {
  ListedEntry entry;
  std::string metadata;
  Error problem;  // why the metadata could not be read
};

void TakeMetadata(const std::string& directory, Listed* listed) {
  listed->problem =
      ReadMetadata(directory, listed->entry.metadataName, format::kTextBytes, &listed->metadata);
}

bool IsGone(const Listed& listed) {
  return listed.problem.systemError == ENOENT;
}

// The most recently used first. An entry that another process deletes meanwhile is left out.
std::vector<Listed> ReadEntries(const std::string& directory,
                                const std::vector<ListedEntry>& entries) {
  std::vector<Listed> list;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    list.push_back({*entry, "", {}});
    TakeMetadata(directory, &list.back());
  }
  if (std::none_of(list.begin(), list.end(), IsGone)) return list;
  // Some of them may only be being replaced.
  WaitBetweenLooks();
  for (Listed& listed : list) {
    if (IsGone(listed)) TakeMetadata(directory, &listed);
  }
  list.erase(std::remove_if(list.begin(), list.end(), IsGone), list.end());
  return list;
}

json EntryJson(const Listed& listed) {
  const ListedEntry& entry = listed.entry;
  json object = {{"name", entry.name},
                 {"url", entry.url.empty() ? json() : json(entry.url)},
                 {"size", entry.contentBytes},
                 {"metadata_bytes", entry.metadataBytes},
                 {"age", AgeSeconds(entry.used)},
                 {"used", UtcText(entry.used.tv_sec)},
                 {"metadata", listed.metadata}};
  if (listed.problem) {
    object["metadata"] = nullptr;
    object["problem"] = listed.problem.Message();
  }
  return object;
}

std::string EntryLine(const Listed& listed) {
  const ListedEntry& entry = listed.entry;
  return FirstLine(entry.name) + " " + Padded(std::to_string(entry.contentBytes), 10) + " " +
         Padded(std::to_string(entry.metadataBytes), 4) + " " +
         Padded(AgeText(AgeSeconds(entry.used)), 4) + " " +
         (listed.problem ? "(unreadable)" : FirstLine(listed.metadata)) + "\n";
}

}  // namespace

ExitStatus List(Context& context, bool asJson) {
  Error error;
  const auto reader = OpenReader(context, &error);
  if (reader == nullptr) return context.Fail(error);
  const std::vector<ListedEntry> found = reader->List(&error);
  if (error) return context.Fail(error);
  const std::vector<Listed> entries = ReadEntries(reader->CacheDirectory(), found);
  TellWhyNoSession(context, reader->CacheDirectory());
  std::string text;
  json list = json::array();
  for (const Listed& listed : entries) {
    if (asJson) {
      list.push_back(EntryJson(listed));
    } else {
      text += EntryLine(listed);
    }
  }
  ExitStatus status = context.Print(asJson ? JsonLine(list) : text);
  for (const Listed& listed : entries) {
    if (listed.problem) status = Worse(status, context.Fail(listed.problem));
  }
  return status;
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
  return value.dump(-1, ' ', true, json::error_handler_t::replace) + "\n";
}

Error ReadMetadata(const std::string& directory, const std::string& file, std::size_t capacity,
                   std::string* metadata) {
  metadata->clear();
  Error error;
  const auto input = Input::OpenEntryFile(directory + "/" + file, &error);
  if (input == nullptr) return error;
  std::vector<char> piece(capacity);
  std::size_t bytes = 0;
  if (error = input->Read(piece.data(), piece.size(), &bytes); error) return error;
  metadata->assign(piece.data(), bytes);
  return {};
}

}  // namespace ox::tools

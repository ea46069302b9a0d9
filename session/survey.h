// What lies in a cache directory, read without the module and without changing anything.
#ifndef OX_SESSION_SURVEY_H_
#define OX_SESSION_SURVEY_H_

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "host/directory.h"
#include "session/allocation_unit.h"
#include <oxfilecache/error.h>

namespace ox::internal {

// A content file with its metadata file: what the start-up scan takes for an entry.
struct SurveyedEntry {
  std::string_view name;         // of the content file, without the directory; the survey's
  std::uint64_t contentBytes;    // size of the content file
  std::uint64_t metadataBytes;   // size of the metadata file
  std::uint64_t metadataBlocks;  // allocated to the metadata file, of 512 bytes
  // Of the last use: the metadata file's modification time, or what stands in for it (use_order.h).
  timespec used;
};

// The order of the entries in a survey.
bool IsUsedBefore(const SurveyedEntry& a, const SurveyedEntry& b);

inline std::uint64_t OnDisk(const SurveyedEntry& entry, const AllocationUnit& unit) {
  return unit.OnDisk(entry.contentBytes) +
         unit.OfMetadata(entry.metadataBytes, entry.metadataBlocks);
}

struct Survey {
  std::vector<SurveyedEntry> entries;               // least recently used first
  std::vector<std::string> contentWithoutMetadata;  // names of the form of a content file
  std::vector<std::string> metadataWithoutContent;
  // A session's own unfinished files, in the order in which they were made.
  std::vector<std::string> staging;
  // Commit files that cannot be finished, because a directory stands under a name of their entry or
  // of their staged content, or for one of the reasons in
  // unfinished_commits.h.
  std::vector<std::string> blockedCommits;
  // Content files of entries that are left out since their content waits for another start
  // (half_placed.h).
  std::vector<std::string> waitingEntries;
  // Everything else but the session's and the module's own files.
  std::vector<std::string> foreignFiles;
  std::uint64_t bytes = 0;      // of all entries, content and metadata
  NameArena names;              // of the entries
  bool isOrderKept = false;     // the times of use are from the file of use_order.h
  bool isOrderToStay = false;   // which was written anew where times cannot be set
  bool mayFinishLater = false;  // commits wait for a file system that is writable or less full
};

// kInputOutput when the directory, or a file in it, cannot be looked at.
Error SurveyDirectory(const std::string& directory, Survey* survey);

}  // namespace ox::internal

#endif

// What a manager is shown in place of files on the disk: always a configuration, while it starts
// the entries that a survey has just found, while an entry is replaced its new metadata, and while
// one is created that it has no content yet.
//
// Not locked: the session's mutex guards it.
#ifndef OX_SESSION_SHOWN_FILES_H_
#define OX_SESSION_SHOWN_FILES_H_

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "session/configuration_snapshot.h"
#include "session/survey.h"
#include <oxfilecache/format.h>

namespace ox::internal {

class ShownFiles {
 public:
  explicit ShownFiles(ConfigurationSnapshot configuration)
      : configuration_(std::move(configuration)) {}
  ShownFiles(const ShownFiles&) = delete;
  ShownFiles& operator=(const ShownFiles&) = delete;

  const ConfigurationSnapshot& Configuration() const { return configuration_; }
  void UseConfiguration(ConfigurationSnapshot configuration) {
    configuration_ = std::move(configuration);
  }

  // Shown until the end of this.
  template <typename Thing>
  class [[nodiscard]] Showing {
   public:
    Showing(const Thing*& place, const Thing* thing) : place_(place) { place_ = thing; }
    ~Showing() { place_ = nullptr; }
    Showing(const Showing&) = delete;
    Showing& operator=(const Showing&) = delete;

   private:
    const Thing*& place_;
  };
  // The directory has these entries alone, in this order: what else lies there is none of the
  // manager's business, and the survey has looked at the sizes.
  Showing<std::vector<SurveyedEntry>> ShowEntries(const std::vector<SurveyedEntry>& entries) {
    return {entries_, &entries};
  }
  // Every metadata file holds this text.
  Showing<char> ShowMetadata(const char* text) { return {metadata_, text}; }

  // Every content file is empty.
  Showing<bool> ShowNoContent() { return {hasNoContent_, &kTrue}; }

  // Null where none is shown.
  const char* Metadata() const { return metadata_; }
  bool HasNoContent() const { return hasNoContent_ != nullptr; }

  // Calls `visit` with the path of each entry's metadata file while that returns true. False where
  // no entries are shown. Throws bad_alloc.
  template <typename Visit>
  bool VisitEntries(const char* directory, Visit visit);
  // Of a file of the entry that is being visited.
  bool IsVisitedContent(const char* path) const;
  std::optional<std::uint64_t> VisitedSize(const char* path) const;

 private:
  static constexpr bool kTrue = true;

  ConfigurationSnapshot configuration_;
  const std::vector<SurveyedEntry>* entries_ = nullptr;
  const char* metadata_ = nullptr;
  const bool* hasNoContent_ = nullptr;
  const SurveyedEntry* visited_ = nullptr;
  std::string visitedContent_;  // the path of its content
};

template <typename Visit>
bool ShownFiles::VisitEntries(const char* directory, Visit visit) {
  if (entries_ == nullptr) return false;
  const std::string prefix = std::string(directory) + "/";
  std::string metadata;
  for (const SurveyedEntry& entry : *entries_) {
    visitedContent_.assign(prefix).append(entry.name);
    const Showing<SurveyedEntry> visited(visited_, &entry);
    metadata.assign(visitedContent_).append(format::kMetadataSuffix);
    if (!visit(metadata.c_str())) break;
  }
  return true;
}

}  // namespace ox::internal

#endif

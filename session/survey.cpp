#include "session/survey.h"

#include <algorithm>
#include <string_view>
#include <tuple>
#include <utility>

#include "host/directory.h"
#include "session/session_names.h"
#include "session/use_order.h"
#include <oxfilecache/format.h>

namespace ox::internal {
namespace {

// The scan cuts a metadata file's name at the first ".ox_meta", which must be its end, counts
// characters where it cuts bytes, and takes "\" for "/".
bool ScanLooksAt(std::string_view name) {
  return name.find(format::kMetadataSuffix) == name.size() - format::kMetadataSuffixLength;
}

bool ScanFindsContentOf(std::string_view name) {
  return std::none_of(name.begin(), name.end(),
                      [](char c) { return static_cast<unsigned char>(c) >= 0x80 || c == '\\'; });
}

bool IsMetadata(const DirectoryEntry& file) {
  return !file.isDirectory && format::HasMetadataSuffix(file.name) && ScanLooksAt(file.name);
}

// A file in the order of names. Most comparisons need no more than the first bytes, which lie
// beside each other here.
class FileByName {
 public:
  // Less the last `suffix` bytes.
  FileByName(const DirectoryEntry& file, std::size_t suffix)
      : file_(&file), length_(file.name.size() - suffix) {
    const std::string_view name = Name();
    for (std::size_t i = 0; i < sizeof start_; ++i) {
      start_ = start_ << 8 | (i < name.size() ? static_cast<unsigned char>(name[i]) : 0U);
    }
  }

  const DirectoryEntry& File() const { return *file_; }
  std::string_view Name() const { return file_->name.substr(0, length_); }

  bool operator<(const FileByName& other) const {
    return start_ != other.start_ ? start_ < other.start_ : Name() < other.Name();
  }

 private:
  std::uint64_t start_ = 0;
  const DirectoryEntry* file_;
  std::size_t length_;
};

// Pairs the files by sorting their names: each metadata file meets the file that bears its name
// without the suffix.
class Surveyor {
 public:
  Surveyor(const DirectoryListing& listing, Survey* survey) : survey_(survey) {
    for (const DirectoryEntry& file : listing.entries) {
      if (file.isDirectory) directories_.push_back(file.name);
      if (IsMetadata(file)) {
        metadata_.emplace_back(file, format::kMetadataSuffixLength);
      } else {
        others_.emplace_back(file, 0);
      }
    }
    std::sort(metadata_.begin(), metadata_.end());
    std::sort(others_.begin(), others_.end());
    std::sort(directories_.begin(), directories_.end());
  }

  void Run() {
    survey_->entries.reserve(metadata_.size());
    auto other = others_.begin();
    for (const FileByName& metadata : metadata_) {
      for (; other != others_.end() && *other < metadata; ++other)
        SortOther(other->File());
      const bool isThere = other != others_.end() && other->Name() == metadata.Name();
      if (Pair(metadata, isThere ? &other->File() : nullptr)) ++other;
    }
    for (; other != others_.end(); ++other)
      SortOther(other->File());
    // They are in the order of their names, which stays where times are equal.
    std::stable_sort(survey_->entries.begin(), survey_->entries.end(), IsUsedEarlier);
    std::sort(staging_.begin(), staging_.end(), IsMadeBefore);
    for (const DirectoryEntry* file : staging_)
      survey_->staging.emplace_back(file->name);
  }

 private:
  static bool IsUsedEarlier(const SurveyedEntry& a, const SurveyedEntry& b) {
    return std::tie(a.used.tv_sec, a.used.tv_nsec) < std::tie(b.used.tv_sec, b.used.tv_nsec);
  }

  static bool IsMadeBefore(const DirectoryEntry* a, const DirectoryEntry* b) {
    return AgeOf(a->modified, a->name) < AgeOf(b->modified, b->name);
  }

  // True when the two are an entry.
  bool Pair(const FileByName& metadata, const DirectoryEntry* content) {
    const DirectoryEntry& file = metadata.File();
    const std::string_view name = metadata.Name();
    if (IsSessionName(std::string(name))) {
      survey_->foreignFiles.emplace_back(file.name);
      return false;
    }
    if (content == nullptr || !content->isRegular || !ScanFindsContentOf(name)) {
      survey_->metadataWithoutContent.emplace_back(file.name);
      return false;
    }
    // Copied, since the listing holds twice as many names and does not live long.
    survey_->entries.push_back(
        {survey_->names.Add(name), content->size, file.size, file.blocks, file.modified});
    survey_->bytes += content->size + file.size;
    return true;
  }

  void SortOther(const DirectoryEntry& file) {
    std::string name(file.name);
    if (IsPermanentSessionName(name)) return;
    if (std::vector<std::string>* list = ListOf(file, name)) {
      list->push_back(std::move(name));
    } else {
      staging_.push_back(&file);
    }
  }

  // Null for a staged file: these are put in order first.
  std::vector<std::string>* ListOf(const DirectoryEntry& file, const std::string& name) const {
    if (!file.isRegular) return &survey_->foreignFiles;
    if (format::IsContentName(name)) return &survey_->contentWithoutMetadata;
    if (IsBlockedCommit(name)) return &survey_->blockedCommits;
    return IsSessionName(name) ? nullptr : &survey_->foreignFiles;
  }

  bool IsDirectoryName(const std::string& name) const {
    return std::binary_search(directories_.begin(), directories_.end(), name);
  }

  bool IsBlockedCommit(const std::string& name) const {
    std::string entryName;
    std::string id;
    return ParseCommitFileName(name, &entryName, &id) &&
           (IsDirectoryName(entryName) || IsDirectoryName(entryName + format::kMetadataSuffix) ||
            IsDirectoryName(StagedContentName(id)));
  }

  Survey* survey_;
  std::vector<FileByName> metadata_;
  std::vector<FileByName> others_;
  std::vector<const DirectoryEntry*> staging_;
  std::vector<std::string_view> directories_;
};

}  // namespace

bool IsUsedBefore(const SurveyedEntry& a, const SurveyedEntry& b) {
  return IsOlder(a.used, a.name, b.used, b.name);
}

Error SurveyDirectory(const std::string& directory, Survey* survey) {
  *survey = Survey();
  DirectoryListing listing;
  if (!ListDirectory(directory.c_str(), &listing)) {
    return SystemError("cannot read the directory", directory);
  }
  Surveyor(listing, survey).Run();
  ReadUseOrder(directory, survey);
  return {};
}

}  // namespace ox::internal

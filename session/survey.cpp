#include "session/survey.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "host/directory.h"
#include "session/session_names.h"
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

class Surveyor {
 public:
  Surveyor(const std::string& directory, Survey* survey) : directory_(directory), survey_(survey) {}

  Error Run() {
    if (!ListDirectory(directory_.c_str(), &listed_)) {
      return SystemError("cannot read the directory", directory_);
    }
    for (const DirectoryEntry& file : listed_) {
      if (!IsMetadata(file)) others_.emplace(file.name, Other{&file, false});
    }
    for (const DirectoryEntry& file : listed_) {
      if (IsMetadata(file)) PairMetadata(file);
    }
    for (const DirectoryEntry& file : listed_) {
      if (!IsMetadata(file)) SortOther(file);
    }
    return {};
  }

 private:
  // Anything but a metadata file.
  struct Other {
    const DirectoryEntry* file;
    bool isPaired;
  };

  static bool IsMetadata(const DirectoryEntry& file) {
    return !file.isDirectory && format::HasMetadataSuffix(file.name) && ScanLooksAt(file.name);
  }

  // In the order of the listing, which is the order of use.
  void PairMetadata(const DirectoryEntry& file) {
    const std::string name(file.name, 0, file.name.size() - format::kMetadataSuffixLength);
    if (IsSessionName(name)) {
      survey_->foreignFiles.push_back(file.name);
      return;
    }
    const auto content = others_.find(name);
    if (content == others_.end() || !content->second.file->isRegular || !ScanFindsContentOf(name)) {
      survey_->metadataWithoutContent.push_back(file.name);
      return;
    }
    content->second.isPaired = true;
    survey_->entries.push_back(
        {name, content->second.file->size, file.size, file.blocks, file.modified});
    survey_->bytes += content->second.file->size + file.size;
  }

  void SortOther(const DirectoryEntry& file) {
    if (others_.find(file.name)->second.isPaired || IsPermanentSessionName(file.name)) return;
    ListOf(file)->push_back(file.name);
  }

  std::vector<std::string>* ListOf(const DirectoryEntry& file) const {
    if (!file.isRegular) return &survey_->foreignFiles;
    if (format::IsContentName(file.name)) return &survey_->contentWithoutMetadata;
    if (IsBlockedCommit(file.name)) return &survey_->blockedCommits;
    return IsSessionName(file.name) ? &survey_->staging : &survey_->foreignFiles;
  }

  bool IsDirectoryName(const std::string& name) const {
    const auto found = others_.find(name);
    return found != others_.end() && found->second.file->isDirectory;
  }

  bool IsBlockedCommit(const std::string& name) const {
    std::string entryName;
    std::string id;
    return ParseCommitFileName(name, &entryName, &id) &&
           (IsDirectoryName(entryName) || IsDirectoryName(entryName + format::kMetadataSuffix));
  }

  const std::string& directory_;
  Survey* survey_;
  std::vector<DirectoryEntry> listed_;
  std::unordered_map<std::string_view, Other> others_;
};

}  // namespace

Error SurveyDirectory(const std::string& directory, Survey* survey) {
  *survey = Survey();
  return Surveyor(directory, survey).Run();
}

}  // namespace ox::internal

#include "session/survey.h"

#include <sys/stat.h>

#include <cstring>
#include <unordered_map>
#include <utility>

#include "host/directory.h"
#include "session/session_names.h"

namespace ox::internal {
namespace {

// The scan cuts a metadata file's name at the first ".ox_meta", which must be its end, counts
// characters where it cuts bytes, and takes "\" for "/".
bool ScanLooksAt(const std::string& name) {
  return name.find(format::kMetaDataSuffix) == name.size() - format::kMetaDataSuffixLength;
}

bool ScanFindsContentOf(const std::string& name) {
  for (const char c : name) {
    if (static_cast<unsigned char>(c) >= 0x80 || c == '\\') return false;
  }
  return true;
}

bool IsOwn(const std::string& name) {
  return name == kLockFileName || name == format::kConfigurationFileName;
}

bool IsStaging(const std::string& name) {
  std::string entryName;
  std::string id;
  return !StagingId(name).empty() || ParseCommitFileName(name, &entryName, &id);
}

class Surveyor {
 public:
  Surveyor(const std::string& directory, Survey* survey) : directory_(directory), survey_(survey) {}

  Error Run() {
    if (!ListDirectory(directory_.c_str(), &listed_)) {
      return SystemError("cannot read the directory", directory_);
    }
    for (const DirectoryEntry& file : listed_)
      NoteContent(file);
    for (const DirectoryEntry& file : listed_)
      PairMetaData(file);
    for (const DirectoryEntry& file : listed_)
      SortRest(file);
    return {};
  }

 private:
  struct Content {
    std::uint64_t bytes;
    bool isPaired;
  };

  bool IsMetaData(const DirectoryEntry& file) const {
    return !file.isDirectory && format::HasMetaDataSuffix(file.name) && ScanLooksAt(file.name);
  }

  // Bytes of a regular file; false for anything else.
  bool Measure(const std::string& name, std::uint64_t* bytes) const {
    struct stat status;
    if (lstat((directory_ + "/" + name).c_str(), &status) != 0) return false;
    *bytes = static_cast<std::uint64_t>(status.st_size);
    return S_ISREG(status.st_mode);
  }

  void NoteContent(const DirectoryEntry& file) {
    std::uint64_t bytes = 0;
    if (file.isDirectory || IsMetaData(file) || !Measure(file.name, &bytes)) return;
    contents_[file.name] = {bytes, false};
  }

  // In the order of the listing, which is the order of use.
  void PairMetaData(const DirectoryEntry& file) {
    if (!IsMetaData(file)) return;
    const std::string name = file.name.substr(0, file.name.size() - format::kMetaDataSuffixLength);
    const auto content = contents_.find(name);
    if (content == contents_.end() || !ScanFindsContentOf(name)) {
      survey_->metaDataWithoutContent.push_back(file.name);
      return;
    }
    content->second.isPaired = true;
    std::uint64_t metaDataBytes = 0;
    if (!Measure(file.name, &metaDataBytes)) metaDataBytes = 0;
    survey_->entries.push_back({name, content->second.bytes, metaDataBytes, file.modified});
    survey_->bytes += content->second.bytes + metaDataBytes;
  }

  void SortRest(const DirectoryEntry& file) {
    if (IsMetaData(file) || IsOwn(file.name)) return;
    const auto content = contents_.find(file.name);
    const bool isRegular = content != contents_.end();
    if (isRegular && content->second.isPaired) return;
    if (isRegular && format::IsContentName(file.name)) {
      survey_->contentWithoutMetaData.push_back(file.name);
    } else if (isRegular && IsStaging(file.name)) {
      survey_->staging.push_back(file.name);
    } else {
      survey_->strangers.push_back(file.name);
    }
  }

  const std::string& directory_;
  Survey* survey_;
  std::vector<DirectoryEntry> listed_;
  std::unordered_map<std::string, Content> contents_;
};

}  // namespace

Error SurveyDirectory(const std::string& directory, Survey* survey) {
  *survey = Survey();
  return Surveyor(directory, survey).Run();
}

}  // namespace ox::internal

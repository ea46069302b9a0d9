#include "session/committed_pair.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "host/system_calls.h"
#include "session/content_in_place.h"
#include "session/entry_name.h"
#include "session/entry_seal.h"
#include "session/session_names.h"
#include <oxfilecache/format.h>

namespace ox::internal {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestSearch{5};
// At durability `none` the owner deletes the metadata of an entry that it replaces, and the new one
// comes a moment later.
constexpr std::chrono::milliseconds kMetadataComesWithin{20};
constexpr std::chrono::microseconds kBetweenLooks{200};

enum class Outcome { kFound, kNone, kWithoutMetadata, kChanged };

// One look at the files of an entry.
class Look {
 public:
  Look(const std::string& directory, const std::string& name) : path_(directory), name_(name) {}

  Error Run(CommittedPair* pair, Outcome* outcome) {
    *pair = {};
    *outcome = Outcome::kNone;
    directory_.Reset(OpenWithoutTrace(AT_FDCWD, path_.c_str(), O_DIRECTORY));
    if (!directory_.IsOpen()) {
      return errno == ENOENT ? Error{} : SystemError("cannot read the directory", path_);
    }
    const std::string metadata = name_ + format::kMetadataSuffix;
    if (Error error = Open(metadata, &pair->metadata)) return error;
    if (Error error = Open(name_, &pair->content)) return error;
    std::string id;
    if (Error error = FindCommitFile(&id)) return error;
    if (!id.empty()) return TakeUnfinished(id, pair, outcome);
    if (!pair->metadata.IsOpen()) {
      if (pair->content.IsOpen()) *outcome = Outcome::kWithoutMetadata;
    } else if (pair->content.IsOpen()) {
      *outcome = LeadsTo(metadata, pair->metadata) ? Outcome::kFound : Outcome::kChanged;
      TakeHalfPlaced(pair);
    }
    return {};
  }

 private:
  // After a power cut the metadata may be in place and its content still staged (half_placed.h).
  void TakeHalfPlaced(CommittedPair* pair) const {
    if (staged_.empty() || !ReadSeal(pair->metadata.Get())) return;
    for (const std::string& name : staged_) {
      UniqueFd staged;
      if (Open(name, &staged) || !staged.IsOpen()) continue;
      if (!IsOf(pair->metadata, staged) || IsOf(pair->metadata, pair->content)) continue;
      pair->content = std::move(staged);
      return;
    }
  }

  static bool IsOf(const UniqueFd& metadata, const UniqueFd& content) {
    bool isInPlace = false;
    return IsContentInPlace(metadata.Get(), content.Get(), &isInPlace) && isInPlace;
  }

  // What a commit file asks for.
  Error TakeUnfinished(const std::string& id, CommittedPair* pair, Outcome* outcome) const {
    const std::string commit = CommitFileName(name_, id);
    CommittedPair unfinished;
    if (Error error = Open(commit, &unfinished.metadata)) return error;
    if (Error error = Open(StagedContentName(id), &unfinished.content)) return error;
    *outcome = Outcome::kChanged;
    if (!unfinished.metadata.IsOpen()) return {};
    if (!unfinished.content.IsOpen()) return TakeWithoutStaged(commit, unfinished, pair, outcome);
    if (LeadsTo(commit, unfinished.metadata)) *outcome = Outcome::kFound;
    *pair = std::move(unfinished);
    return {};
  }

  // The content is in place, or it is lost and the old pair stays. NAME must still lead to what was
  // opened before the commit file was seen: it may be the content of before.
  Error TakeWithoutStaged(const std::string& commit, CommittedPair& unfinished, CommittedPair* pair,
                          Outcome* outcome) const {
    if (!pair->content.IsOpen()) {
      if (Error error = Open(name_, &pair->content)) return error;
      if (!pair->content.IsOpen()) *outcome = Outcome::kNone;
      return {};
    }
    if (!LeadsTo(name_, pair->content)) return {};
    bool isInPlace = false;
    if (!IsContentInPlace(unfinished.metadata.Get(), pair->content.Get(), &isInPlace)) {
      return SystemError("cannot read the content", path_ + "/" + name_);
    }
    if (!LeadsTo(commit, unfinished.metadata)) return {};
    if (isInPlace) {
      pair->metadata = std::move(unfinished.metadata);
    } else if (!pair->metadata.IsOpen()) {
      *outcome = Outcome::kNone;
      return {};
    } else if (!LeadsTo(name_ + format::kMetadataSuffix, pair->metadata)) {
      return {};
    }
    *outcome = Outcome::kFound;
    return {};
  }

  // Not open, and no error, where there is no such file.
  Error Open(const std::string& name, UniqueFd* file) const {
    // O_NONBLOCK, so that a FIFO planted under the name cannot hang the device.
    file->Reset(OpenWithoutTrace(directory_.Get(), name.c_str(), O_NOFOLLOW | O_NONBLOCK));
    if (!file->IsOpen()) {
      return errno == ENOENT ? Error{} : SystemError("cannot open", path_ + "/" + name);
    }
    struct stat status;
    if (fstat(file->Get(), &status) == 0 && S_ISREG(status.st_mode)) return {};
    errno = 0;
    return SystemError("not a regular file", path_ + "/" + name);
  }

  bool LeadsTo(const std::string& name, const UniqueFd& file) const {
    struct stat now;
    struct stat opened;
    return fstatat(directory_.Get(), name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0 &&
           fstat(file.Get(), &opened) == 0 && now.st_dev == opened.st_dev &&
           now.st_ino == opened.st_ino;
  }

  // The ID stays empty where there is none. Of several, which only a failing disk leaves behind,
  // the one that a recovery finishes last.
  Error FindCommitFile(std::string* id) {
    std::vector<std::string> names;
    if (!ListCommitFiles(&names)) return SystemError("cannot read the directory", path_);
    if (names.empty()) return {};
    const auto latest = std::max_element(names.begin(), names.end(),
                                         [this](const std::string& a, const std::string& b) {
                                           return AgeOf(TimeOf(a), a) < AgeOf(TimeOf(b), b);
                                         });
    std::string entryName;
    ParseCommitFileName(*latest, &entryName, id);
    return {};
  }

  // False with errno.
  bool ListCommitFiles(std::vector<std::string>* names) {
    // Opened anew: a handle of before need not show what was made since.
    UniqueFd file(OpenWithoutTrace(directory_.Get(), ".", O_DIRECTORY));
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(
        file.IsOpen() ? fdopendir(file.Get()) : nullptr, &closedir);
    if (listing == nullptr) return false;
    static_cast<void>(file.Release());
    for (;;) {
      errno = 0;
      const dirent* found = readdir(listing.get());
      if (found == nullptr) return errno == 0;
      const std::string_view name(found->d_name);
      if (name.substr(0, kStagedPrefix.size()) == kStagedPrefix) NoteStaged(found->d_name);
      if (std::strncmp(found->d_name, name_.c_str(), name_.size()) != 0) continue;
      std::string entryName;
      std::string id;
      const bool isOne = ParseCommitFileName(found->d_name, &entryName, &id);
      if (isOne && !IsOfGrowingContent(path_, found->d_name)) names->push_back(found->d_name);
    }
  }

  void NoteStaged(const std::string& name) {
    const std::string id = StagingId(name);
    if (!id.empty() && name == StagedContentName(id)) staged_.push_back(name);
  }

  timespec TimeOf(const std::string& name) const {
    struct stat status {};
    fstatat(directory_.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
    return status.st_mtim;
  }

  const std::string& path_;
  const std::string& name_;
  UniqueFd directory_;
  std::vector<std::string> staged_;  // names of staged content
};

}  // namespace

Error OpenCommittedPair(const std::string& directory, const std::string& name,
                        CommittedPair* pair) {
  const Clock::time_point start = Clock::now();
  for (;;) {
    Outcome outcome = Outcome::kNone;
    if (Error error = Look(directory, name).Run(pair, &outcome)) return error;
    const auto elapsed = Clock::now() - start;
    if (outcome == Outcome::kFound) return {};
    if (outcome == Outcome::kNone ||
        (outcome == Outcome::kWithoutMetadata && elapsed > kMetadataComesWithin)) {
      return NoEntry();
    }
    if (elapsed > kLongestSearch) {
      Error error = MakeError(ErrorKind::kInUse, "another process changes the entry all the time");
      error.path = directory + "/" + name;
      return error;
    }
    std::this_thread::sleep_for(kBetweenLooks);
  }
}

}  // namespace ox::internal

// The floor: the system calls that the cache's contract forces, in a loop written by hand, and
// nothing else. No list, no lock, no memory from the heap.
//
//   hit      digest of the URL; access, open, read, close of the metadata file
//   content  the same; open, read, close of the content file
//   store    digest; create, write, close of the content file, then of the metadata file
//   remove   a hit, since an entry is looked up before it is removed; unlink of both files
//   churn    a store; unlink of the two files of an old entry
//   start    the configuration file like a metadata file; the directory read; for each metadata
//            file: does the content exist, its size, the size of the metadata file
//
// A second floor also measures the content file of a new entry before it is made, as the contract
// has it: what a store costs in system calls alone. A third one starts with a bare scan: it looks
// at each file of the directory once, from the directory, and puts no question twice.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <stdexcept>

#include "bench/contender.h"
#include "bench/files.h"
#include <oxfilecache/format.h>

namespace ox::bench {
namespace {

constexpr std::size_t kNameLength = format::kContentNameLength;
constexpr const char* kSuffix = format::kMetadataSuffix;
constexpr std::size_t kPathBytes = 512;

using Name = std::array<char, kNameLength>;

enum class Kind { kPlain, kMeasuring, kBareScan };

class Floor final : public Contender {
 public:
  Floor(const Setting& setting, Kind kind)
      : entries_(setting.entries), kind_(kind), prefixLength_(setting.directory.size() + 1) {
    if (prefixLength_ + kNameLength + format::kMetadataSuffixLength + 1 > kPathBytes)
      throw std::runtime_error("the directory's path is too long");
    WriteConfiguration(setting.directory, entries_);
    for (char* path : {contentPath_, metadataPath_, scanPath_}) {
      std::memcpy(path, setting.directory.c_str(), prefixLength_ - 1);
      path[prefixLength_ - 1] = '/';
    }
    contentPath_[prefixLength_ + kNameLength] = '\0';
    std::memcpy(metadataPath_ + prefixLength_ + kNameLength, kSuffix,
                format::kMetadataSuffixLength + 1);
  }

  void Open() override {
    char text[format::kTextBytes];
    std::strcpy(scanPath_ + prefixLength_, format::kConfigurationFileName);
    if (kind_ != Kind::kBareScan && access(scanPath_, F_OK) != 0)
      ThrowSystemError("find", scanPath_);
    ReadFile(scanPath_, text, sizeof text);
    scanPath_[prefixLength_] = '\0';
    stored_.clear();
    DIR* directory = opendir(scanPath_);
    if (directory == nullptr) ThrowSystemError("open", scanPath_);
    while (const dirent* found = readdir(directory)) {
      if (kind_ == Kind::kBareScan) {
        ScanBare(dirfd(directory), found->d_name);
      } else {
        Scan(found->d_name);
      }
    }
    closedir(directory);
    count_ = stored_.size();
  }

  void Close() override {}

  void Store(std::size_t index, std::string_view content, const std::string& metadata) override {
    Locate(Url(index));
    struct stat status;
    if (kind_ == Kind::kMeasuring) lstat(contentPath_, &status);
    WriteFile(contentPath_, content);
    WriteFile(metadataPath_, metadata);
    stored_.push_back(NameOnPath());
    if (++count_ <= entries_) return;
    std::memcpy(contentPath_ + prefixLength_, stored_.front().data(), kNameLength);
    std::memcpy(metadataPath_ + prefixLength_, stored_.front().data(), kNameLength);
    stored_.pop_front();
    UnlinkBoth();
    --count_;
  }

  bool Fetch(std::size_t index, Want want, Fetched* out) override {
    Locate(Url(index));
    if (kind_ != Kind::kBareScan && access(metadataPath_, F_OK) != 0) return false;
    out->metadataBytes = ReadFile(metadataPath_, out->metadata, sizeof out->metadata);
    if (want != Want::kContent) return true;
    out->contentBytes = ReadFile(contentPath_, out->content.data(), out->content.size());
    return true;
  }

  void Remove(std::size_t index) override {
    Locate(Url(index));
    if (access(metadataPath_, F_OK) != 0) ThrowSystemError("find", metadataPath_);
    char metadata[format::kTextBytes];
    ReadFile(metadataPath_, metadata, sizeof metadata);
    UnlinkBoth();
    --count_;
  }

 private:
  void Locate(const std::string& url) {
    WriteContentName(url, contentPath_ + prefixLength_);
    std::memcpy(metadataPath_ + prefixLength_, contentPath_ + prefixLength_, kNameLength);
  }

  Name NameOnPath() const {
    Name name;
    std::memcpy(name.data(), contentPath_ + prefixLength_, kNameLength);
    return name;
  }

  void UnlinkBoth() {
    if (unlink(contentPath_) != 0) ThrowSystemError("unlink", contentPath_);
    if (unlink(metadataPath_) != 0) ThrowSystemError("unlink", metadataPath_);
  }

  void Scan(const char* name) {
    if (std::strcmp(name + std::min(kNameLength, std::strlen(name)), kSuffix) != 0) return;
    std::memcpy(contentPath_ + prefixLength_, name, kNameLength);
    std::memcpy(metadataPath_ + prefixLength_, name, kNameLength);
    struct stat status;
    if (access(contentPath_, F_OK) != 0) ThrowSystemError("find", contentPath_);
    if (stat(contentPath_, &status) != 0) ThrowSystemError("measure", contentPath_);
    if (stat(metadataPath_, &status) != 0) ThrowSystemError("measure", metadataPath_);
    stored_.push_back(NameOnPath());
  }

  void ScanBare(int directory, const char* name) {
    struct stat status;
    if (fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
      ThrowSystemError("measure", name);
  }

  std::size_t entries_;
  Kind kind_;
  std::size_t prefixLength_;
  char contentPath_[kPathBytes];
  char metadataPath_[kPathBytes];
  char scanPath_[kPathBytes];
  std::size_t count_ = 0;
  // What a store above the limit deletes, from the front: in the order of the directory, then of
  // the stores. Right after Open until the first Remove, which does not look for its name here.
  std::deque<Name> stored_;
};

const Registration kFloor("floor", [](const Setting& setting) {
  return std::make_unique<Floor>(setting, Kind::kPlain);
});
const Registration kMeasuringFloor("measuring-floor", [](const Setting& setting) {
  return std::make_unique<Floor>(setting, Kind::kMeasuring);
});
const Registration kBareScan("bare-scan", [](const Setting& setting) {
  return std::make_unique<Floor>(setting, Kind::kBareScan);
});

}  // namespace
}  // namespace ox::bench

// The careful floor: what a loop written by hand needs for what a session promises at durability
// `process`, and nothing else. No list, no limits, no order of use, no sums.
//
//   store    digest; is the entry there; make, write, close of two staged files; two renamings
//   replace  the same; three renamings: of the metadata to a log, of the content, of the log
//
// Names are looked up from the directory, which is held open. The sealed floor also gives the
// metadata file a seal (an extended attribute, as long as a session's) and a time of use. The
// synchronised floor does what such a loop needs for durability `power`: both files are
// synchronised before anything is renamed, and the directory after that.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "bench/contender.h"
#include "bench/files.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/format.h>

namespace ox::bench {
namespace {

enum class Care { kRenamed, kSealed, kSynchronised };

class CarefulFloor final : public Contender {
 public:
  CarefulFloor(const Setting& setting, Care care) : path_(setting.directory), care_(care) {}

  void Open() override {
    directory_ = UniqueFd(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory_.IsOpen()) ThrowSystemError("open", path_.c_str());
  }
  void Close() override { directory_ = UniqueFd(); }

  void Store(std::size_t index, std::string_view content, const std::string& metadata) override {
    Locate(index);
    const bool isThere = faccessat(directory_.Get(), metadata_, F_OK, 0) == 0;
    char stagedContent[32];
    char stagedMetadata[32];
    std::snprintf(stagedContent, sizeof stagedContent, "%llu.part", ++staged_);
    std::snprintf(stagedMetadata, sizeof stagedMetadata, "%llu.meta", staged_);
    Make(stagedContent, content, false);
    Make(stagedMetadata, metadata, care_ == Care::kSealed);
    if (isThere) {
      char log[sizeof metadata_];
      std::snprintf(log, sizeof log, "%s.log", content_);
      Rename(stagedMetadata, log);
      Synchronise(directory_, path_.c_str());
      Rename(stagedContent, content_);
      Rename(log, metadata_);
    } else {
      Rename(stagedContent, content_);
      Rename(stagedMetadata, metadata_);
      Synchronise(directory_, path_.c_str());
    }
  }

  bool Fetch(std::size_t index, Want want, Fetched* out) override {
    Locate(index);
    out->metadataBytes = Read(metadata_, out->metadata, sizeof out->metadata);
    if (want == Want::kContent)
      out->contentBytes = Read(content_, out->content.data(), out->content.size());
    return true;
  }

  void Remove(std::size_t index) override {
    Locate(index);
    for (const char* name : {content_, metadata_}) {
      if (unlinkat(directory_.Get(), name, 0) != 0) ThrowSystemError("unlink", name);
    }
  }

 private:
  void Locate(std::size_t index) {
    WriteContentName(Url(index), content_);
    std::memcpy(metadata_, content_, format::kContentNameLength);
    std::strcpy(metadata_ + format::kContentNameLength, format::kMetadataSuffix);
  }

  void Make(const char* name, std::string_view data, bool isSealed) {
    const UniqueFd file(
        openat(directory_.Get(), name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.IsOpen()) ThrowSystemError("make", name);
    if (write(file.Get(), data.data(), data.size()) != static_cast<ssize_t>(data.size()))
      ThrowSystemError("write", name);
    if (isSealed) Seal(file.Get(), name);
    Synchronise(file, name);
  }

  void Synchronise(const UniqueFd& file, const char* name) {
    if (care_ == Care::kSynchronised && fsync(file.Get()) != 0) ThrowSystemError("fsync", name);
  }

  void Seal(int file, const char* name) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const timespec times[2] = {now, now};
    if (fsetxattr(file, "user.oxfilecache", seal_, sizeof seal_, 0) != 0 ||
        futimens(file, times) != 0) {
      ThrowSystemError("seal", name);
    }
  }

  void Rename(const char* from, const char* to) {
    if (renameat(directory_.Get(), from, directory_.Get(), to) != 0)
      ThrowSystemError("rename", from);
  }

  std::size_t Read(const char* name, void* data, std::size_t capacity) {
    const UniqueFd file(openat(directory_.Get(), name, O_RDONLY | O_CLOEXEC));
    const ssize_t count = file.IsOpen() ? read(file.Get(), data, capacity) : -1;
    if (count < 0) ThrowSystemError("read", name);
    return static_cast<std::size_t>(count);
  }

  const std::string path_;
  const Care care_;
  const char seal_[80] = {};
  UniqueFd directory_;
  unsigned long long staged_ = 0;
  char content_[format::kContentNameLength + 1] = {};
  char metadata_[format::kContentNameLength + format::kMetadataSuffixLength + 1] = {};
};

Registration Register(const char* name, Care care) {
  return {name,
          [care](const Setting& setting) { return std::make_unique<CarefulFloor>(setting, care); }};
}

const Registration kCarefulFloor = Register("careful-floor", Care::kRenamed);
const Registration kSealedFloor = Register("sealed-floor", Care::kSealed);
const Registration kSynchronisedFloor = Register("synchronised-floor", Care::kSynchronised);

}  // namespace
}  // namespace ox::bench

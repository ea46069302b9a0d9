#include "tools/oxcache/dry_run_file_system.h"

#include <new>
#include <utility>

#include "host/posix_file.h"
#include <oxfilecache/string.h>

namespace ox::tools {

class DryRunFile final : public os::filesystem::File {
 public:
  explicit DryRunFile(DryRunFileSystem& fileSystem)
      : fileSystem_(fileSystem), file_(fileSystem.directories_) {}

  int SetPath(const char* utf8Path) noexcept override {
    path_ = utf8Path != nullptr ? utf8Path : "";
    return file_.SetPath(utf8Path);
  }

  int Open(int mode) override { return mode == kOpenRead && !IsDeleted() ? file_.Open(mode) : 0; }

  void Close() override { file_.Close(); }

  int Delete(int /*flags*/) override {
    if (Exists() == 0) return 0;
    fileSystem_.NoteDeletion(path_, file_.GetSize());
    return 1;
  }

  int Exists() override { return IsDeleted() ? 0 : file_.Exists(); }

  void GetPath(OxString& out) override { file_.GetPath(out); }

  std::uint64_t GetSize() override {
    const std::uint64_t bytes = IsDeleted() ? 0 : file_.GetSize();
    fileSystem_.NoteSize(path_, bytes);
    return bytes;
  }

  std::uint64_t Read(std::uint64_t count, void* destination) override {
    return file_.Read(count, destination);
  }

  std::uint64_t Write(std::uint64_t /*count*/, const void* /*source*/) override { return 0; }

  int EnumerateDirectory(EnumerateCallback callback, void* context, int flags) override {
    fileSystem_.NoteDirectory(path_);
    Enumeration enumeration{fileSystem_, callback, context};
    return file_.EnumerateDirectory(&VisitEntry, &enumeration, flags);
  }

 private:
  struct Enumeration {
    DryRunFileSystem& fileSystem;
    EnumerateCallback callback;
    void* context;
  };

  static bool VisitEntry(File& entry, bool isDirectory, void* context) {
    const auto& enumeration = *static_cast<Enumeration*>(context);
    OxString path;
    entry.GetPath(path);
    DryRunFile file(enumeration.fileSystem);
    file.SetPath(path.UTF8());
    enumeration.fileSystem.NoteVisit(file.path_);
    return enumeration.callback(file, isDirectory, enumeration.context);
  }

  bool IsDeleted() const { return fileSystem_.IsDeleted(path_); }

  DryRunFileSystem& fileSystem_;
  internal::PosixFile file_;
  std::string path_;
};

DryRunFileSystem::DryRunFileSystem(std::string defaultDirectory)
    : defaultDirectory_(std::move(defaultDirectory)) {}

os::filesystem::File* DryRunFileSystem::CreateFile() {
  return new (std::nothrow) DryRunFile(*this);
}

void DryRunFileSystem::DestroyFile(os::filesystem::File* file) {
  delete static_cast<DryRunFile*>(file);
}

int DryRunFileSystem::GetDefaultDirectory(OxString& out) {
  out = defaultDirectory_.c_str();
  return !out.IsEmpty();
}

void DryRunFileSystem::NoteVisit(const std::string& path) noexcept {
  visits_.push_back({path, {}, {}, {}});
}

void DryRunFileSystem::NoteSize(const std::string& path, std::uint64_t bytes) noexcept {
  if (visits_.empty()) return;
  DryVisit& visit = visits_.back();
  auto& noted = path == visit.path ? visit.ownBytes : visit.partnerBytes;
  if (!noted) noted = bytes;
}

void DryRunFileSystem::NoteDeletion(const std::string& path, std::uint64_t bytes) noexcept {
  deleted_.insert(path);
  if (!visits_.empty()) visits_.back().deletions.push_back({path, bytes});
}

}  // namespace ox::tools

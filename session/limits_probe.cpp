#include "session/limits_probe.h"

#include <sys/stat.h>

#include <climits>
#include <cstring>
#include <new>

#include "session/without_exceptions.h"
#include <oxfilecache/string.h>

namespace ox::internal {
namespace {

// What the module sees while it is asked for its limits. Nothing is thrown and nothing is allocated
// in its calls, since the module has no unwind tables.
class ProbeFileSystem final : public IFileSystem {
 public:
  ProbeFileSystem(const std::string& directory, const ConfigurationSnapshot& configuration)
      : directory_(directory), configuration_(configuration) {
    askedDirectory_.reserve(PATH_MAX);
  }

  // False when the module was not told the directory, and takes it for empty.
  bool HasMemory() const { return hasMemory_; }
  // The directory that the module wanted to scan.
  const std::string& AskedDirectory() const { return askedDirectory_; }

  os::filesystem::File* CreateFile() override { return new (std::nothrow) ProbeFile(*this); }
  void DestroyFile(os::filesystem::File* file) override { delete static_cast<ProbeFile*>(file); }
  int GetDefaultDirectory(OxString& out) override {
    out = directory_.c_str();
    hasMemory_ = !out.IsEmpty();
    return hasMemory_;
  }

 private:
  class ProbeFile final : public os::filesystem::File {
   public:
    explicit ProbeFile(ProbeFileSystem& fileSystem)
        : fileSystem_(fileSystem), reader_(fileSystem.configuration_) {}
    ~ProbeFile() = default;

    // The module keeps the text while the object is bound to it.
    int SetPath(const char* utf8Path) override {
      path_ = utf8Path;
      return 1;
    }
    int Open(int mode) override { return IsConfiguration() && reader_.Open(mode); }
    void Close() override { reader_.Close(); }
    int Delete(int /*flags*/) override { return 0; }
    int Exists() override { return IsConfiguration() && fileSystem_.configuration_.Exists(); }
    void GetPath(OxString& out) override { out = path_; }
    std::uint64_t GetSize() override { return 0; }
    std::uint64_t Read(std::uint64_t count, void* destination) override {
      return reader_.IsOpen() ? reader_.Read(count, destination) : 0;
    }
    std::uint64_t Write(std::uint64_t /*count*/, const void* /*source*/) override { return 0; }
    int EnumerateDirectory(EnumerateCallback /*callback*/, void* /*context*/,
                           int /*flags*/) override {
      // At most as long as was reserved, so that nothing is allocated.
      fileSystem_.askedDirectory_.assign(path_, strnlen(path_, PATH_MAX));
      return 1;
    }

   private:
    bool IsConfiguration() const { return fileSystem_.configuration_.Path() == path_; }

    ProbeFileSystem& fileSystem_;
    ConfigurationReader reader_;
    const char* path_ = "";
  };

  const std::string& directory_;
  const ConfigurationSnapshot& configuration_;
  std::string askedDirectory_;
  bool hasMemory_ = true;
};

}  // namespace

Error ProbeLimits(ModuleHold& hold, const std::string& directory,
                  const ConfigurationSnapshot& configuration, session::CacheLimits* limits) {
  ProbeFileSystem fileSystem(directory, configuration);
  hold.UseFileSystem(fileSystem);
  const host::ManagerReference manager(hold.Module());
  if (!manager || !fileSystem.HasMemory()) {
    return MakeError(ErrorKind::kOutOfMemory, "no memory for the cache manager");
  }
  limits->maxSize = static_cast<std::uint32_t>(manager->GetMaxSize());
  limits->maxEntries = static_cast<std::uint32_t>(manager->GetMaxEntries());
  limits->maxEntrySize = static_cast<std::uint32_t>(manager->GetMaxCacheValueSize());
  limits->cacheDirectory = fileSystem.AskedDirectory();
  return {};
}

}  // namespace ox::internal

namespace ox::session {

Error ReadLimits(const std::string& directory, const std::string& modulePath, CacheLimits* limits) {
  return internal::WithoutExceptions([&] {
    struct stat status;
    if (stat(directory.c_str(), &status) != 0) {
      return SystemError("cannot read the directory", directory);
    }
    Error error;
    const auto hold = internal::ModuleHold::Take(modulePath, &error);
    if (hold == nullptr) return error;
    internal::ConfigurationSnapshot configuration;
    error = internal::ConfigurationSnapshot::Read(directory, &configuration);
    if (error) return error;
    return internal::ProbeLimits(*hold, directory, configuration, limits);
  });
}

}  // namespace ox::session

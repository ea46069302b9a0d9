// oxbench_scale: what opening a large cache costs beside a bare scan of the same directory, and
// beside what the module alone takes for as many entries. Prints the figures as JSON.
//
// The bare scan reads the directory and looks at each file once, from the directory that it holds
// open. The module alone is started over a file system that shows it the same number of entries
// without any system call.
//
// Times are those of the processor, so that other programs count less. In memory nothing waits.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/counting.h"
#include "bench/files.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/format.h>
#include <oxfilecache/host.h>
#include <oxfilecache/session.h>
#include <oxfilecache/string.h>

namespace {

using namespace ox;
using namespace ox::bench;
using os::filesystem::File;

// With their metadata a million of them stay below the largest limit of bytes.
constexpr off_t kContentBytes = 4000;
constexpr off_t kMetadataBytes = 200;

// 32 digits that differ for each number and fall all over the directory.
std::string ContentName(std::uint64_t number) {
  char text[40];
  std::snprintf(text, sizeof text, "%016llX%016llX",
                static_cast<unsigned long long>((number + 1) * 0x9E3779B97F4A7C15U),
                static_cast<unsigned long long>((number + 1) * 0xD1B54A32D192ED03U));
  return text;
}

void MakeFile(const std::string& path, off_t bytes) {
  const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  // Holes: a million files of content would fill a memory.
  if (!file.IsOpen() || ftruncate(file.Get(), bytes) != 0) ThrowSystemError("make", path.c_str());
}

void MakeCache(const std::string& directory, std::size_t entries) {
  if (std::filesystem::exists(directory)) throw std::runtime_error("the directory is in use");
  std::filesystem::create_directories(directory);
  for (std::size_t i = 0; i < entries; ++i) {
    const std::string content = directory + "/" + ContentName(i);
    MakeFile(content, kContentBytes);
    MakeFile(content + format::kMetadataSuffix, kMetadataBytes);
  }
  WriteFile((directory + "/file-cache.conf").c_str(),
            "MAX_CACHE_SIZE=4294967295\nMAX_CACHE_ENTRY_SIZE=1000000\nMAX_CACHE_ENTRIES=" +
                std::to_string(entries) + "\n");
}

void ScanBare(const std::string& path) {
  DIR* directory = opendir(path.c_str());
  if (directory == nullptr) ThrowSystemError("open", path.c_str());
  struct stat status;
  while (const dirent* found = readdir(directory)) {
    if (fstatat(dirfd(directory), found->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
      ThrowSystemError("look at", found->d_name);
  }
  closedir(directory);
}

// Shows entries that are nowhere on disk, and their configuration.
class ShownFile final : public File {
 public:
  explicit ShownFile(std::size_t entries) : entries_(entries) {}
  ~ShownFile() = default;

  int SetPath(const char* utf8Path) override {
    path_ = utf8Path;
    return 1;
  }
  int Open(int /*mode*/) override { return 1; }
  void Close() override {}
  int Delete(int /*flags*/) override { throw std::logic_error("the module refuses an entry"); }
  int Exists() override { return 1; }
  void GetPath(OxString& out) override { out = path_; }
  std::uint64_t GetSize() override { return kMetadataBytes; }
  std::uint64_t Read(std::uint64_t count, void* destination) override {
    const std::string text =
        "MAX_CACHE_SIZE=4294967295 MAX_CACHE_ENTRIES=" + std::to_string(entries_);
    return text.copy(static_cast<char*>(destination), count);
  }
  std::uint64_t Write(std::uint64_t /*count*/, const void* /*source*/) override { return 0; }
  int EnumerateDirectory(EnumerateCallback callback, void* context, int /*flags*/) override {
    const std::string prefix = std::string(path_) + "/";
    std::string path;
    for (std::size_t i = 0; i < entries_; ++i) {
      path = prefix + ContentName(i) + format::kMetadataSuffix;
      ShownFile file(entries_);
      file.SetPath(path.c_str());
      callback(file, false, context);
    }
    return 1;
  }

 private:
  std::size_t entries_;
  const char* path_ = "";
};

class ShownFileSystem final : public IFileSystem {
 public:
  ShownFileSystem(std::string directory, std::size_t entries)
      : directory_(std::move(directory)), entries_(entries) {}
  File* CreateFile() override { return new ShownFile(entries_); }
  void DestroyFile(File* file) override { delete static_cast<ShownFile*>(file); }
  int GetDefaultDirectory(OxString& out) override {
    out = directory_.c_str();
    return 1;
  }

 private:
  std::string directory_;
  std::size_t entries_;
};

double ProcessorMilliseconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double Milliseconds(const std::function<void()>& step) {
  const double start = ProcessorMilliseconds();
  step();
  return ProcessorMilliseconds() - start;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

struct Scale {
  std::string directory;
  std::size_t entries;
  std::unique_ptr<session::CacheSession> session;

  void Open() {
    session::SessionOptions options;
    options.directory = directory;
    options.modulePath = OX_MODULE_PATH;
    // With the blocks of their files a million entries would exceed the largest limit.
    options.blockSize = 1;
    Error error;
    session = session::CacheSession::Open(options, &error);
    if (session == nullptr) throw std::runtime_error(error.Message());
    if (session->Statistics().entries != entries) throw std::runtime_error("entries are missing");
  }
};

// Heap that the module holds for as many entries, and the time that it takes to list them.
struct ModuleAlone {
  double milliseconds;
  std::uint64_t heapBytes;
};

ModuleAlone MeasureModule(const std::string& directory, std::size_t entries) {
  host::PosixKernel kernel("");
  ShownFileSystem files(directory, entries);
  kernel.UseFileSystem(&files);
  std::string error;
  const auto module = host::LoadedModule::Load(OX_MODULE_PATH, kernel, &error);
  if (module == nullptr) throw std::runtime_error(error);
  const std::size_t before = HeapInUse();
  std::optional<host::ManagerReference> manager;
  const double time = Milliseconds([&] { manager.emplace(*module); });
  if (!*manager) throw std::runtime_error("out of memory");
  return {time, HeapInUse() - before};
}

nlohmann::json Measure(const std::string& directory, std::size_t entries, std::size_t rounds) {
  MakeCache(directory, entries);
  const ModuleAlone module = MeasureModule(directory, entries);
  Scale scale{directory, entries, nullptr};
  std::vector<double> bare;
  std::vector<double> opening;
  std::vector<double> ratios;
  std::size_t peak = 0;
  ScanBare(directory);
  for (std::size_t round = 0; round < rounds; ++round) {
    bare.push_back(Milliseconds([&] { ScanBare(directory); }));
    const std::size_t before = HeapInUse();
    ForgetHeapPeak();
    opening.push_back(Milliseconds([&] { scale.Open(); }));
    peak = std::max(peak, HeapPeak() - before);
    ratios.push_back(opening.back() / bare.back());
    scale.session.reset();
  }
  std::filesystem::remove_all(directory);
  return {{"entries", entries},
          {"rounds", rounds},
          {"bare_scan_ms", Median(bare)},
          {"open_ms", Median(opening)},
          {"ratio", Median(ratios)},
          {"module_alone_ms", module.milliseconds},
          {"module_heap_bytes", module.heapBytes},
          {"heap_peak_bytes", peak}};
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Measures the opening of a large cache against a bare scan of its directory.");
  std::string directory;
  std::size_t entries = 100'000;
  std::size_t rounds = 5;
  app.add_option("--directory", directory, "an existing directory to work in")->required();
  app.add_option("--entries", entries);
  app.add_option("--rounds", rounds);
  CLI11_PARSE(app, argc, argv);
  try {
    std::cout << Measure(std::filesystem::absolute(directory) / "scale", entries, rounds).dump(1)
              << "\n";
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "oxbench_scale: " << error.what() << "\n";
    return 1;
  }
}

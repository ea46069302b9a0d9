// The Linux host with one fault. The environment variable OX_BROKEN_HOST names the line of the
// check that the fault breaks, with a word before it where a line has several faults.
#include <pthread.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <utility>

#include <oxfilecache/host.h>
#include <oxfilecache/host_check.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/mutex.h>
#include <oxfilecache/string.h>

namespace {

using ox::host::PosixKernel;
using ox::os::filesystem::File;

// Takes the beginning of a line.
bool Breaks(const char* line) {
  static const char* const chosen = std::getenv("OX_BROKEN_HOST");
  return chosen != nullptr && std::strncmp(chosen, line, std::strlen(line)) == 0;
}

bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<signed char>(c) > 0; });
}

std::string ContentOf(const std::string& path) {
  std::ifstream file(path);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

bool IsFirstThread() {
  static const std::thread::id first = std::this_thread::get_id();
  return std::this_thread::get_id() == first;
}

class BrokenMutex final : public IOxMutex {
 public:
  explicit BrokenMutex(PosixKernel& real) : real_(real.CreateMutex()) {
    if (Breaks("CreateMutex: gives an")) Lock();
  }
  int Lock() override {
    if (Breaks("Lock: lets")) return pthread_mutex_lock(&plain_);
    if (Breaks("Lock: keeps")) return 1;
    const int result = real_->Lock();
    ++depth_;
    return result;
  }
  int Unlock() override {
    if (Breaks("Lock: lets")) return pthread_mutex_unlock(&plain_);
    if (Breaks("Lock: keeps")) return 1;
    for (int extra = Breaks("Unlock: lets") ? depth_ - 1 : 0; extra > 0; --extra)
      UnlockOnce();
    return depth_ > 0 ? UnlockOnce() : 0;
  }

 private:
  int UnlockOnce() {
    --depth_;
    return real_->Unlock();
  }

  IOxMutex* real_;
  pthread_mutex_t plain_ = PTHREAD_MUTEX_INITIALIZER;
  int depth_ = 0;
};

std::string lastPath;

// Wraps a file object of its own, or an entry of an enumeration.
class BrokenFile final : public File {
 public:
  BrokenFile(File& real, std::string boundPath) : real_(real), path_(std::move(boundPath)) {}

  int SetPath(const char* path) override {
    if (Breaks("SetPath: binds") && !path_.empty()) return 1;
    path_ = lastPath = path;
    isDeleted_ = false;
    const int result = real_.SetPath(path);
    return Breaks("SetPath: accepts") ? Exists() : result;
  }

  int Open(int mode) override {
    namespace fs = std::filesystem;
    const bool isThere = real_.Exists() != 0;
    if (Breaks("Delete: leaves") && isDeleted_) return 0;
    if (mode == kOpenRead) {
      if (Breaks("Open 2: opens")) return 0;
      if (Breaks("Open 2: fails") && !isThere) std::ofstream made(path_);
      if (Breaks("Open 2: leaves") && fs::is_regular_file(path_)) fs::resize_file(path_, 0);
      if (Breaks("Read: gives 0") && fs::is_directory(path_)) return 1;
    } else {
      if (Breaks("Open 0x35: makes") && !isThere) return 0;
      if (Breaks("Open 0x35: fails") && !fs::exists(fs::path(path_).parent_path())) return 1;
      if (Breaks("names: UTF-8") && !IsAscii(path_)) real_.SetPath((path_ + "?").c_str());
    }
    const bool isEmptied = mode != kOpenWrite || !Breaks("Open 0x35: empties");
    const std::string content = isEmptied ? "" : ContentOf(path_);
    isOpen_ = real_.Open(mode) != 0;
    if (!isEmptied) real_.Write(content.size(), content.data());
    return isOpen_;
  }

  void Close() override {
    if (Breaks("Close: leaves")) return;
    isOpen_ = false;
    real_.Close();
  }

  int Delete(int flags) override {
    isDeleted_ = true;
    if (Breaks("Delete: removes")) return real_.Exists();
    const int result = real_.Delete(flags);
    return Breaks("Delete: fails") ? 1 : result;
  }

  int Exists() override {
    if (Breaks("CreateFile: gives objects with") && !isEntry) real_.SetPath(lastPath.c_str());
    return Breaks("Exists: tells") ? 1 : real_.Exists();
  }
  void GetPath(OxString& out) override { out = path_.c_str(); }

  std::uint64_t GetSize() override {
    static std::map<std::string, std::uint64_t> sizes;
    if (Breaks("GetSize: needs") && !isOpen_) return 0;
    if (Breaks("GetSize: gives") && real_.Exists() == 0) return UINT64_MAX;
    if (Breaks("GetSize: follows")) return sizes.emplace(path_, real_.GetSize()).first->second;
    if (Breaks("EnumerateDirectory: entries") && isEntry) return 0;
    return real_.GetSize();
  }

  std::uint64_t Read(std::uint64_t count, void* destination) override {
    if (Breaks("Read: gives 0") && std::filesystem::is_directory(path_)) return UINT64_MAX;
    if (Breaks("Read: goes")) return real_.Open(kOpenRead) ? real_.Read(count, destination) : 0;
    if (Breaks("Read: gives what")) count = (count + 1) / 2;
    const std::uint64_t read = real_.Read(count, destination);
    if (Breaks("Read: writes")) static_cast<char*>(destination)[read] = '\0';
    return read;
  }

  std::uint64_t Write(std::uint64_t count, const void* source) override {
    if (Breaks("Write: gives 0") && count == 0) return UINT64_MAX;
    if (Breaks("Write: gives the")) return real_.Write(count, source) != 0;
    if (Breaks("2 Write: gives the") && count != 0) {
      return real_.Write(count, source) | std::uint64_t{1} << 32;
    }
    if (Breaks("Close: leaves")) {
      pending_.append(static_cast<const char*>(source), static_cast<std::size_t>(count));
      return count;
    }
    if (Breaks("Write: puts")) {
      std::string text(static_cast<const char*>(source), static_cast<std::size_t>(count));
      std::replace(text.begin(), text.end(), '\r', '\n');
      return real_.Write(count, text.data());
    }
    return real_.Write(count, source);
  }

  int EnumerateDirectory(EnumerateCallback callback, void* context, int flags) override;

  // What the destructor of the host's own object would do.
  void Flush() { real_.Write(pending_.size(), pending_.data()); }
  bool IsOpen() const { return isOpen_; }
  File& Real() { return real_; }

  bool isEntry = false;

 private:
  File& real_;
  std::string path_;
  std::string pending_;
  bool isOpen_ = false;
  bool isDeleted_ = false;
};

struct Walk {
  const std::string& boundPath;
  File::EnumerateCallback callback;
  void* context;
};

bool isEnumerating = false;

std::string EntryPath(const std::string& boundPath, const std::string& name) {
  namespace fs = std::filesystem;
  if (Breaks("EnumerateDirectory: paths are")) return name;
  if (Breaks("EnumerateDirectory: paths keep") && boundPath.back() == '/') return boundPath + name;
  if (Breaks("2 EnumerateDirectory: paths keep")) return (fs::canonical(boundPath) / name).string();
  return boundPath + "/" + name;
}

bool CallBack(const Walk& walk, File& real, const std::string& name, bool isDirectory) {
  BrokenFile entry(real, EntryPath(walk.boundPath, name));
  entry.isEntry = true;
  if (Breaks("EnumerateDirectory: marks")) isDirectory = false;
  void* context = Breaks("EnumerateDirectory: hands") ? nullptr : walk.context;
  return walk.callback(entry, isDirectory, context) || Breaks("EnumerateDirectory: stops");
}

bool OnEntry(File& real, bool isDirectory, void* context) {
  const Walk& walk = *static_cast<const Walk*>(context);
  OxString text;
  real.GetPath(text);
  const std::filesystem::path path(text.UTF8());
  const std::string name = path.filename().string();
  if (Breaks("EnumerateDirectory: names") && !IsAscii(name)) return true;
  const bool isThere = std::filesystem::exists(path);
  if (Breaks("EnumerateDirectory: goes on after other") && !isThere) return false;
  if (!CallBack(walk, real, name, isDirectory)) return false;
  if (Breaks("EnumerateDirectory: visits") && !CallBack(walk, real, name, isDirectory))
    return false;
  if (Breaks("EnumerateDirectory: goes on after the") && isThere && !std::filesystem::exists(path))
    return false;
  if (Breaks("EnumerateDirectory: does") && isDirectory)
    real.EnumerateDirectory(OnEntry, context, 0);
  return true;
}

int BrokenFile::EnumerateDirectory(EnumerateCallback callback, void* context, int flags) {
  const bool isMissing = !std::filesystem::exists(path_);
  if (Breaks("EnumerateDirectory: calls") && isMissing) return callback(*this, true, context);
  Walk walk{path_, callback, context};
  isEnumerating = true;
  const int result = real_.EnumerateDirectory(OnEntry, &walk, flags);
  isEnumerating = false;
  return result;
}

class BrokenFileSystem final : public IFileSystem {
 public:
  explicit BrokenFileSystem(IFileSystem& real) : real_(real) {}

  File* CreateFile() override {
    if (Breaks("files: work") && !IsFirstThread()) return nullptr;
    if (Breaks("EnumerateDirectory: lets") && isEnumerating) return nullptr;
    if (Breaks("no CreateFile: gives objects")) return nullptr;
    return new BrokenFile(*real_.CreateFile(), "");
  }

  void DestroyFile(File* file) override {
    if (file == nullptr && Breaks("DestroyFile: does")) std::abort();
    if (file == nullptr) return;
    auto* broken = static_cast<BrokenFile*>(file);
    broken->Flush();
    if (!Breaks("DestroyFile: closes") || !broken->IsOpen()) real_.DestroyFile(&broken->Real());
    delete broken;
  }

  int GetDefaultDirectory(OxString& out) override {
    const int result = real_.GetDefaultDirectory(out);
    if (Breaks("GetDefaultDirectory: gives")) out.Append("/");
    return Breaks("GetDefaultDirectory: succeeds") ? 0 : result;
  }

 private:
  IFileSystem& real_;
};

// The strings of this library use the real kernel, so that a fault of the kernel's primitives stays
// one.
class BrokenKernel final : public IOxKernel {
 public:
  explicit BrokenKernel(const char* directory)
      : real_(directory), fileSystem_(real_.OwnFileSystem()) {
    ox::SetKernel(&real_);
    IsFirstThread();
  }

  void* GetInterface(const char* name) override {
    if (Breaks("GetInterface: gives the file system for") ||
        (Breaks("GetInterface: gives the file system again") && isReleased_))
      return nullptr;
    const bool isKnown = std::strcmp(name, "IFileSystem") == 0;
    return isKnown || Breaks("GetInterface: gives null") ? &fileSystem_ : nullptr;
  }
  void ReleaseInterface(void*) override { isReleased_ = true; }

  IOxMutex* CreateMutex() override {
    if (!Breaks("CreateMutex: gives a mutex")) return new BrokenMutex(real_);
    static BrokenMutex shared(real_);
    return &shared;
  }
  void DestroyMutex(IOxMutex* mutex) override {
    if (!Breaks("CreateMutex: gives a mutex")) delete static_cast<BrokenMutex*>(mutex);
  }

  void* Allocate(std::size_t bytes, const char* file, int line) override {
    if (Breaks("Allocate: takes") && file == nullptr) std::abort();
    if (Breaks("Allocate: works") && !IsFirstThread()) return nullptr;
    if (Breaks("Allocate: keeps") && file != nullptr) return onlyBlock_;
    if (!Breaks("Allocate: aligns")) return real_.Allocate(bytes, file, line);
    return static_cast<char*>(real_.Allocate(bytes + 4, file, line)) + 4;
  }
  void Free(void* block, const char* file, int line) override {
    if (block == onlyBlock_ || Breaks("Free: gives")) return;
    const bool isShifted = reinterpret_cast<std::uintptr_t>(block) % 8 == 4;
    real_.Free(isShifted ? static_cast<char*>(block) - 4 : block, file, line);
  }

  void* MemSet(void* dst, int value, std::size_t bytes) override {
    return real_.MemSet(dst, value, Breaks("MemSet: sets") ? bytes + 1 : bytes);
  }
  void* MemCopy(void* dst, const void* src, std::size_t bytes) override {
    if (!Breaks("MemCopy: copies")) return real_.MemCopy(dst, src, bytes);
    return std::strncpy(static_cast<char*>(dst), static_cast<const char*>(src), bytes);
  }
  std::size_t StrLen16(const std::uint16_t* text) override {
    if (Breaks("StrLen16: counts")) return real_.StrLen(reinterpret_cast<const char*>(text));
    return real_.StrLen16(text);
  }
  std::size_t StrLen(const char* text) override {
    return real_.StrLen(text) + (Breaks("StrLen: counts") ? 1 : 0);
  }
  int StrCmp(const char* a, const char* b) override {
    return Breaks("StrCmp: is") ? strcasecmp(a, b) : real_.StrCmp(a, b);
  }
  char* StrCpy(char* dst, const char* src) override {
    return Breaks("StrCpy: copies") ? static_cast<char*>(std::memcpy(dst, src, std::strlen(src)))
                                    : real_.StrCpy(dst, src);
  }
  const char* StrStr(const char* haystack, const char* needle) override {
    const char* found = real_.StrStr(haystack, needle);
    if (!Breaks("StrStr: finds")) return found;
    const char* next = found;
    while (next != nullptr && (next = real_.StrStr(found + 1, needle)) != nullptr)
      found = next;
    return found;
  }
  unsigned long StrToUL(const char* text, char** end, int base) override {
    char* stop = nullptr;
    const unsigned long number = real_.StrToUL(text, &stop, Breaks("StrToUL: reads") ? 0 : base);
    if (end != nullptr && !Breaks("StrToUL: tells")) *end = stop;
    if (Breaks("StrToUL: stops") && end == nullptr && *stop != '\0') return 0;
    return Breaks("StrToUL: gives") && stop - text > 12 ? number & 0xFFFF0000 : number;
  }

 private:
  PosixKernel real_;
  BrokenFileSystem fileSystem_;
  bool isReleased_ = false;
  alignas(16) char onlyBlock_[40000];
};

}  // namespace

IOxKernel* OxHostCheck_GetKernel(const char* directory) {
  if (Breaks("crash kernel: is handed")) std::abort();
  if (Breaks("hang kernel: is handed")) pause();
  return Breaks("kernel: is handed") ? nullptr : new BrokenKernel(directory);
}

void OxHostCheck_ReleaseKernel(IOxKernel* kernel) {
  if (Breaks("kernel: is given")) std::abort();
  delete static_cast<BrokenKernel*>(kernel);
}

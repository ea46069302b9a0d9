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

// Takes the beginning of a line, with the word before it.
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
  ~BrokenMutex() {
    if (depth_ > 0 && !Breaks("2 Lock: keeps")) std::abort();
  }
  int Lock() override {
    if (Breaks("Lock: lets")) return pthread_mutex_lock(&plain_);
    if (Breaks("Lock: keeps")) return 1;
    const int result = real_->Lock();
    most_ = std::max(most_, ++depth_);
    return result;
  }
  int Unlock() override {
    if (Breaks("Lock: lets")) return pthread_mutex_unlock(&plain_);
    if (Breaks("Lock: keeps")) return 1;
    if (Breaks("2 Lock: keeps") || (Breaks("2 Unlock: lets") && most_ == 3 && depth_ == 1))
      return 1;
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
  int most_ = 0;
};

std::string lastPath;
bool isEnumerating = false;
bool isMadeMeanwhile = false;

// Wraps a file object of its own, or an entry of an enumeration.
class BrokenFile final : public File {
 public:
  BrokenFile(File& real, std::string boundPath) : real_(real), path_(std::move(boundPath)) {}

  int SetPath(const char* path) override {
    if (Breaks("SetPath: binds") && !path_.empty()) return 1;
    isRebound_ = !path_.empty();
    path_ = lastPath = path;
    isDeleted_ = false;
    const int result = real_.SetPath(path);
    return Breaks("SetPath: accepts") ? Exists() : result;
  }

  int Open(int mode) override {
    namespace fs = std::filesystem;
    const bool isThere = real_.Exists() != 0;
    if (Breaks("Delete: leaves") && isDeleted_) return 0;
    if (Breaks("3 Delete: leaves") && isDeleted_) return 1;
    if (mode == kOpenRead) {
      if (Breaks("Open 2: opens")) return 0;
      if (Breaks("Open 2: fails") && !isThere) std::ofstream made(path_);
      if (Breaks("2 Open 2: fails") && !isThere) return std::ofstream(path_) ? 0 : 1;
      if (Breaks("Open 2: leaves") && fs::is_regular_file(path_)) fs::resize_file(path_, 0);
      if (Breaks("Read: gives 0") && fs::is_directory(path_)) return 1;
    } else {
      const bool canMake = !isThere && fs::exists(fs::path(path_).parent_path());
      if (Breaks("Open 0x35: makes") && !isThere) return 0;
      if (Breaks("2 Open 0x35: makes") && canMake) return 1;
      if (Breaks("3 Open 0x35: makes") && canMake) return std::ofstream(path_) << "x" ? 1 : 0;
      if (Breaks("2 Open 0x35: empties") && real_.GetSize() == 18) return 0;
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
    isClosed_ = true;
    real_.Close();
  }

  int Delete(int flags) override {
    isDeleted_ = true;
    if (Breaks("Delete: removes")) return real_.Exists();
    if (Breaks("2 SetPath: binds") && isRebound_) return 1;
    if (Breaks("3 EnumerateDirectory: goes on after the") && isEntry) return 1;
    if (Breaks("3 Close: leaves") && isClosed_) return 0;
    const int result = real_.Delete(flags);
    if (Breaks("2 Delete: removes") || (Breaks("5 files: work") && !IsFirstThread())) return 0;
    if (Breaks("2 EnumerateDirectory: goes on after the") && isEntry) return 0;
    return Breaks("Delete: fails") ? 1 : result;
  }

  int Exists() override {
    if (Breaks("CreateFile: gives objects with") && !isEntry) real_.SetPath(lastPath.c_str());
    if (Breaks("Exists: tells") || (Breaks("2 Delete: leaves") && isDeleted_)) return 1;
    if (Breaks("2 EnumerateDirectory: entries") && isEntry) return 0;
    return Breaks("2 Exists: tells") || (Breaks("2 Close: leaves") && isClosed_) ? 0
                                                                                 : real_.Exists();
  }
  void GetPath(OxString& out) override { out = path_.c_str(); }

  std::uint64_t GetSize() override {
    static std::map<std::string, std::uint64_t> sizes;
    if (Breaks("GetSize: needs") && !isOpen_) return 0;
    if (Breaks("GetSize: gives") && real_.Exists() == 0) return UINT64_MAX;
    if (Breaks("GetSize: follows")) return sizes.emplace(path_, real_.GetSize()).first->second;
    if (Breaks("EnumerateDirectory: entries") && isEntry) return 0;
    if (Breaks("4 EnumerateDirectory: lets") && isEnumerating && !isEntry) return 5;
    if (Breaks("2 GetSize: needs") && real_.Exists() != 0 && real_.GetSize() == 0) return 1;
    return real_.GetSize();
  }

  std::uint64_t Read(std::uint64_t count, void* destination) override {
    if (Breaks("Read: gives 0") && std::filesystem::is_directory(path_)) return UINT64_MAX;
    if (Breaks("Read: goes")) return real_.Open(kOpenRead) ? real_.Read(count, destination) : 0;
    if (Breaks("Read: gives what")) count = (count + 1) / 2;
    const std::uint64_t read = real_.Read(count, destination);
    if (Breaks("2 Read: gives what") && read > 0) ++*static_cast<char*>(destination);
    if (Breaks("2 Read: goes") && read == 0) return 1;
    if (Breaks("Read: writes")) static_cast<char*>(destination)[read] = '\0';
    return read;
  }

  std::uint64_t Write(std::uint64_t count, const void* source) override {
    if (Breaks("Write: gives 0") && count == 0) return UINT64_MAX;
    if (Breaks("2 Write: gives 0") && count == 0) return real_.Write(1, "x") - 1;
    if (Breaks("3 EnumerateDirectory: lets") && isEnumerating) return count;
    if (Breaks("2 EnumerateDirectory: lets") && isEnumerating) return 0;
    if (Breaks("4 files: work") && !IsFirstThread()) return count;
    if (Breaks("3 files: work") && !IsFirstThread()) return real_.Write(count, source) - 1;
    if (Breaks("2 Write: puts") && isWritten_) return count;
    isWritten_ = true;
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
  bool isRebound_ = false;
  bool isClosed_ = false;
  bool isWritten_ = false;
};

struct Walk {
  const std::string& boundPath;
  File::EnumerateCallback callback;
  void* context;
};

std::string EntryPath(const std::string& boundPath, const std::string& name, bool isDirectory) {
  namespace fs = std::filesystem;
  if (Breaks(isDirectory ? "2 EnumerateDirectory: paths are" : "3 EnumerateDirectory: paths are"))
    return name;
  if (Breaks("EnumerateDirectory: paths are")) return name;
  if (Breaks("EnumerateDirectory: paths keep") && boundPath.back() == '/') return boundPath + name;
  if (Breaks("2 EnumerateDirectory: paths keep")) return (fs::canonical(boundPath) / name).string();
  return boundPath + "/" + name;
}

bool CallBack(const Walk& walk, File& real, const std::string& name, bool isDirectory) {
  BrokenFile entry(real, EntryPath(walk.boundPath, name, isDirectory));
  entry.isEntry = true;
  if (Breaks("EnumerateDirectory: marks")) isDirectory = false;
  if (Breaks("2 EnumerateDirectory: marks")) isDirectory = true;
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
  if (Breaks("2 EnumerateDirectory: visits") && isDirectory) return true;
  const bool isThere = std::filesystem::exists(path);
  if (Breaks("EnumerateDirectory: goes on after other") && !isThere) return false;
  if (Breaks("no fault: what is gone") && !isThere) return true;
  if (!CallBack(walk, real, name, isDirectory)) return false;
  if (Breaks("EnumerateDirectory: visits") && !CallBack(walk, real, name, isDirectory))
    return false;
  if (Breaks("EnumerateDirectory: goes on after the") && isThere && !std::filesystem::exists(path))
    return false;
  if (Breaks("5 EnumerateDirectory: lets") && isMadeMeanwhile) return false;
  if (Breaks("EnumerateDirectory: does") && isDirectory)
    real.EnumerateDirectory(OnEntry, context, 0);
  return true;
}

int BrokenFile::EnumerateDirectory(EnumerateCallback callback, void* context, int flags) {
  const bool isMissing = !std::filesystem::exists(path_);
  if (Breaks("EnumerateDirectory: calls") && isMissing) return callback(*this, true, context);
  if (Breaks("3 EnumerateDirectory: paths keep") && std::filesystem::is_symlink(path_)) return 1;
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
    isMadeMeanwhile = isEnumerating;
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
  bool IsReleased() const { return isReleased_; }

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
    if (Breaks("2 Allocate: aligns") && bytes > 4000 && bytes < 5000) return nullptr;
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
    if (Breaks("4 MemSet: sets") && bytes > 0) real_.MemSet(static_cast<char*>(dst) - 1, value, 1);
    if (Breaks(bytes == 0 ? "2 MemSet: sets" : "MemSet: sets")) ++bytes;
    real_.MemSet(dst, value, Breaks("5 MemSet: sets") ? bytes / 2 : bytes);
    return Breaks("3 MemSet: sets") ? nullptr : dst;
  }
  void* MemCopy(void* dst, const void* src, std::size_t bytes) override {
    if (Breaks("2 MemCopy: copies") && bytes == 0) bytes = 1;
    if (!Breaks("MemCopy: copies")) real_.MemCopy(dst, src, bytes);
    if (!Breaks("MemCopy: copies")) return Breaks("3 MemCopy: copies") ? nullptr : dst;
    return std::strncpy(static_cast<char*>(dst), static_cast<const char*>(src), bytes);
  }
  std::size_t StrLen16(const std::uint16_t* text) override {
    if (Breaks("StrLen16: counts")) return real_.StrLen(reinterpret_cast<const char*>(text));
    return real_.StrLen16(text) + (Breaks("2 StrLen16: counts") && *text == 0 ? 1 : 0);
  }
  std::size_t StrLen(const char* text) override {
    return real_.StrLen(text) + (Breaks("StrLen: counts") ? 1 : 0);
  }
  int StrCmp(const char* a, const char* b) override {
    const int result = real_.StrCmp(a, b);
    if (Breaks(*a == '\0' ? "2 StrCmp: is" : "3 StrCmp: is") && result == 0) return 1;
    if (Breaks("4 StrCmp: is") && *a == '\0') return 0;
    if (Breaks("5 StrCmp: is") && *b == '\0') return 0;
    return Breaks("StrCmp: is") ? strcasecmp(a, b) : result;
  }
  char* StrCpy(char* dst, const char* src) override {
    if (Breaks("StrCpy: copies"))
      return static_cast<char*>(std::memcpy(dst, src, std::strlen(src)));
    real_.StrCpy(dst, src);
    return Breaks("2 StrCpy: copies") ? nullptr : dst;
  }
  const char* StrStr(const char* haystack, const char* needle) override {
    const char* found = real_.StrStr(haystack, needle);
    if (Breaks("2 StrStr: finds") && found == nullptr) return haystack;
    const bool isWhole = found == haystack && std::strlen(needle) > 9;
    if (Breaks("3 StrStr: finds") && isWhole) return nullptr;
    const bool isLast = found != nullptr && std::strcmp(found, needle) == 0;
    if (Breaks("4 StrStr: finds") && isLast && !isWhole) return nullptr;
    if (!Breaks("StrStr: finds")) return found;
    const char* next = found;
    while (next != nullptr && (next = real_.StrStr(found + 1, needle)) != nullptr)
      found = next;
    return found;
  }
  unsigned long StrToUL(const char* text, char** end, int base) override {
    char* stop = nullptr;
    const unsigned long number = real_.StrToUL(text, &stop, Breaks("StrToUL: reads") ? 0 : base);
    static const char* const texts[] = {"0",       "1048576", "4294967295", "010",      "0x10",
                                        "65536KB", "12 34",   "7\n8",       "300 files"};
    const auto place = std::find(std::begin(texts), std::end(texts), std::string(text)) - texts;
    if (Breaks((std::to_string(place) + " StrToUL").c_str())) return number / 2 + 1;
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
  auto* broken = static_cast<BrokenKernel*>(kernel);
  if (Breaks("kernel: is given") || (Breaks("2 kernel: is given") && broken->IsReleased()))
    std::abort();
  delete broken;
}

// The Linux host with one fault, named by the environment variable OX_BROKEN_HOST.
#include <fcntl.h>
#include <pthread.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
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

bool Has(const char* fault) {
  static const char* const chosen = std::getenv("OX_BROKEN_HOST");
  return chosen != nullptr && std::strcmp(chosen, fault) == 0;
}

bool IsAsciiByte(char c) {
  return static_cast<unsigned char>(c) < 0x80;
}

bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), IsAsciiByte);
}

bool IsFirstThread() {
  static const std::thread::id first = std::this_thread::get_id();
  return std::this_thread::get_id() == first;
}

class BrokenMutex final : public IOxMutex {
 public:
  explicit BrokenMutex(PosixKernel& real) : real_(real.CreateMutex()) {
    if (Has("mutex is made locked")) Lock();
  }
  int Lock() override {
    if (Has("mutex is not recursive")) return pthread_mutex_lock(&plain_);
    if (Has("mutex does nothing")) return 1;
    const int result = real_->Lock();
    ++depth_;
    return result;
  }
  int Unlock() override {
    if (Has("mutex is not recursive")) return pthread_mutex_unlock(&plain_);
    if (Has("mutex does nothing")) return 1;
    for (int extra = Has("mutex does not count") ? depth_ - 1 : 0; extra > 0; --extra)
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

// Wraps a file object of its own, or an entry of an enumeration.
class BrokenFile final : public File {
 public:
  BrokenFile(File& real, std::string boundPath) : real_(real), path_(std::move(boundPath)) {}

  int SetPath(const char* path) override {
    if (Has("SetPath binds once") && !path_.empty()) return 1;
    path_ = path;
    isDeleted_ = false;
    const int result = real_.SetPath(path);
    return Has("SetPath refuses missing files") ? Exists() : result;
  }

  int Open(int mode) override {
    const bool isThere = real_.Exists() != 0;
    if (Has("unusable after Delete") && isDeleted_) return 0;
    if (mode == kOpenRead) {
      if (Has("Open 2 refuses")) return 0;
      if (Has("Open 2 makes files") && !isThere) Touch();
      if (Has("Open 2 empties") && isThere) Touch();
      if (Has("Read fails with -1") && std::filesystem::is_directory(path_)) return 1;
    } else {
      if (Has("Open 0x35 makes no file") && !isThere) return 0;
      if (Has("Open 0x35 keeps the content") && isThere) return OpenKeeping();
      if (Has("Open 0x35 always succeeds") && !CanBeMade()) return 1;
      if (Has("names are converted") && !IsAscii(path_)) return RebindAscii(mode);
    }
    isOpen_ = real_.Open(mode) != 0;
    return isOpen_;
  }

  void Close() override {
    if (Has("Close does not flush")) return;
    isOpen_ = false;
    real_.Close();
  }

  int Delete(int flags) override {
    isDeleted_ = true;
    if (Has("Delete does nothing")) return real_.Exists();
    const int result = real_.Delete(flags);
    return Has("Delete always succeeds") ? 1 : result;
  }

  int Exists() override { return Has("Exists always") ? 1 : real_.Exists(); }
  void GetPath(OxString& out) override { out = path_.c_str(); }

  std::uint64_t GetSize() override {
    static std::map<std::string, std::uint64_t> sizes;
    if (Has("GetSize needs Open") && !isOpen_) return 0;
    if (Has("GetSize fails with -1") && real_.Exists() == 0) return UINT64_MAX;
    if (Has("GetSize is remembered")) return sizes.emplace(path_, real_.GetSize()).first->second;
    if (Has("entries have no size") && isEntry) return 0;
    return real_.GetSize();
  }

  std::uint64_t Read(std::uint64_t count, void* destination) override {
    if (Has("Read fails with -1") && std::filesystem::is_directory(path_)) return UINT64_MAX;
    if (Has("Read starts over")) return real_.Open(kOpenRead) ? real_.Read(count, destination) : 0;
    if (Has("Read gives half")) count = (count + 1) / 2;
    const std::uint64_t read = real_.Read(count, destination);
    if (Has("Read ends with a NUL")) static_cast<char*>(destination)[read] = '\0';
    return read;
  }

  std::uint64_t Write(std::uint64_t count, const void* source) override {
    if (Has("Write of nothing fails") && count == 0) return UINT64_MAX;
    if (Has("Write gives 1")) return real_.Write(count, source) != 0;
    if (Has("Write gives rubbish above 32 bits") && count != 0) {
      return real_.Write(count, source) | std::uint64_t{1} << 32;
    }
    if (Has("Close does not flush")) {
      pending_.append(static_cast<const char*>(source), static_cast<std::size_t>(count));
      return count;
    }
    if (Has("Write in text mode")) {
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
  bool CanBeMade() const {
    return std::filesystem::exists(std::filesystem::path(path_).parent_path());
  }
  void Touch() const { close(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)); }
  int OpenKeeping() {
    const int old = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    char content[64];
    const ssize_t size = read(old, content, sizeof content);
    close(old);
    if (real_.Open(kOpenWrite) == 0) return 0;
    return size <= 0 || real_.Write(static_cast<std::uint64_t>(size), content) != 0;
  }
  int RebindAscii(int mode) {
    std::string ascii = path_;
    std::replace_if(
        ascii.begin(), ascii.end(), [](char c) { return !IsAsciiByte(c); }, '?');
    real_.SetPath(ascii.c_str());
    return real_.Open(mode);
  }

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
  if (Has("entries have bare names")) return name;
  if (Has("entries drop a slash") && boundPath.back() == '/') return boundPath + name;
  if (Has("entries are resolved")) return (fs::canonical(boundPath) / name).string();
  return boundPath + "/" + name;
}

bool CallBack(const Walk& walk, File& real, const std::string& name, bool isDirectory) {
  BrokenFile entry(real, EntryPath(walk.boundPath, name));
  entry.isEntry = true;
  if (Has("nothing is a directory")) isDirectory = false;
  void* context = Has("context is lost") ? nullptr : walk.context;
  return walk.callback(entry, isDirectory, context) || Has("enumeration never stops");
}

bool OnEntry(File& real, bool isDirectory, void* context) {
  const Walk& walk = *static_cast<const Walk*>(context);
  OxString text;
  real.GetPath(text);
  const std::filesystem::path path(text.UTF8());
  const std::string name = path.filename().string();
  if (Has("names are skipped") && !IsAscii(name)) return true;
  const bool isThere = std::filesystem::exists(path);
  if (Has("stops at a vanished entry") && !isThere) return false;
  if (!CallBack(walk, real, name, isDirectory)) return false;
  if (Has("entries come twice") && !CallBack(walk, real, name, isDirectory)) return false;
  if (Has("stops after a deleted entry") && isThere && !std::filesystem::exists(path)) return false;
  if (Has("descends") && isDirectory) real.EnumerateDirectory(OnEntry, context, 0);
  return true;
}

int BrokenFile::EnumerateDirectory(EnumerateCallback callback, void* context, int flags) {
  const bool isMissing = !std::filesystem::exists(path_);
  if (Has("missing directories have entries") && isMissing) return callback(*this, true, context);
  if (Has("crashes on missing directories") && isMissing) std::abort();
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
    if (Has("CreateFile gives null")) return nullptr;
    if (Has("CreateFile on one thread") && !IsFirstThread()) return nullptr;
    if (Has("no objects in enumerations") && isEnumerating) return nullptr;
    if (Has("one object for all") && shared_ != nullptr) {
      ++sharers_;
      return shared_;
    }
    auto* file = new BrokenFile(*real_.CreateFile(), "");
    if (!Has("one object for all")) return file;
    sharers_ = 1;
    return shared_ = file;
  }

  void DestroyFile(File* file) override {
    if (file == nullptr && Has("DestroyFile crashes on null")) std::abort();
    if (file == nullptr) return;
    if (Has("one object for all") && --sharers_ > 0) return;
    auto* broken = static_cast<BrokenFile*>(file);
    if (broken == shared_) shared_ = nullptr;
    broken->Flush();
    if (!Has("DestroyFile does not close") || !broken->IsOpen()) real_.DestroyFile(&broken->Real());
    delete broken;
  }

  int GetDefaultDirectory(OxString& out) override {
    const int result = real_.GetDefaultDirectory(out);
    if (Has("default directory ends with a slash")) out.Append("/");
    return Has("no default directory") ? 0 : result;
  }

 private:
  IFileSystem& real_;
  BrokenFile* shared_ = nullptr;
  int sharers_ = 0;
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
    if (Has("no file system") || (Has("file system only once") && isReleased_)) return nullptr;
    const bool isKnown = std::strcmp(name, "IFileSystem") == 0;
    return isKnown || Has("any name is known") ? &fileSystem_ : nullptr;
  }
  void ReleaseInterface(void*) override { isReleased_ = true; }

  IOxMutex* CreateMutex() override {
    if (!Has("one mutex for all")) return new BrokenMutex(real_);
    static BrokenMutex shared(real_);
    return &shared;
  }
  void DestroyMutex(IOxMutex* mutex) override {
    if (!Has("one mutex for all")) delete static_cast<BrokenMutex*>(mutex);
  }

  void* Allocate(std::size_t bytes, const char* file, int line) override {
    if (Has("Allocate reads the file name") && file == nullptr) std::abort();
    if (Has("Allocate on one thread") && !IsFirstThread()) return nullptr;
    if (Has("one block for all") && file != nullptr) return onlyBlock_;
    if (!Has("Allocate aligns to 4")) return real_.Allocate(bytes, file, line);
    return static_cast<char*>(real_.Allocate(bytes + 4, file, line)) + 4;
  }
  void Free(void* block, const char* file, int line) override {
    if (block == onlyBlock_ || Has("Free does nothing")) return;
    const bool isShifted = reinterpret_cast<std::uintptr_t>(block) % 8 == 4;
    real_.Free(isShifted ? static_cast<char*>(block) - 4 : block, file, line);
  }

  void* MemSet(void* dst, int value, std::size_t bytes) override {
    return real_.MemSet(dst, value, Has("MemSet sets one more") ? bytes + 1 : bytes);
  }
  void* MemCopy(void* dst, const void* src, std::size_t bytes) override {
    if (!Has("MemCopy stops at NUL")) return real_.MemCopy(dst, src, bytes);
    return std::strncpy(static_cast<char*>(dst), static_cast<const char*>(src), bytes);
  }
  std::size_t StrLen16(const std::uint16_t* text) override {
    if (Has("StrLen16 measures bytes")) return real_.StrLen(reinterpret_cast<const char*>(text));
    return real_.StrLen16(text);
  }
  std::size_t StrLen(const char* text) override {
    return real_.StrLen(text) + (Has("StrLen counts the NUL") ? 1 : 0);
  }
  int StrCmp(const char* a, const char* b) override {
    return Has("StrCmp ignores case") ? strcasecmp(a, b) : real_.StrCmp(a, b);
  }
  char* StrCpy(char* dst, const char* src) override {
    return Has("StrCpy omits the NUL") ? static_cast<char*>(std::memcpy(dst, src, std::strlen(src)))
                                       : real_.StrCpy(dst, src);
  }
  const char* StrStr(const char* haystack, const char* needle) override {
    const char* found = real_.StrStr(haystack, needle);
    if (!Has("StrStr finds the last")) return found;
    const char* next = found;
    while (next != nullptr && (next = real_.StrStr(found + 1, needle)) != nullptr)
      found = next;
    return found;
  }
  unsigned long StrToUL(const char* text, char** end, int base) override {
    char* stop = nullptr;
    const unsigned long number = real_.StrToUL(text, &stop, Has("StrToUL takes base 0") ? 0 : base);
    if (end != nullptr && !Has("StrToUL tells no end")) *end = stop;
    if (Has("StrToUL refuses letters") && end == nullptr && *stop != '\0') return 0;
    return Has("StrToUL wraps") && stop - text > 12 ? number & 0xFFFF0000 : number;
  }

 private:
  PosixKernel real_;
  BrokenFileSystem fileSystem_;
  bool isReleased_ = false;
  alignas(16) char onlyBlock_[40000];
};

}  // namespace

IOxKernel* OxHostCheck_GetKernel(const char* directory) {
  if (Has("crashes at the start")) std::abort();
  if (Has("hangs at the start")) pause();
  return Has("hands over nothing") ? nullptr : new BrokenKernel(directory);
}

void OxHostCheck_ReleaseKernel(IOxKernel* kernel) {
  if (Has("crashes at the end")) std::abort();
  delete static_cast<BrokenKernel*>(kernel);
}

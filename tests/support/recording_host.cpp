#include "tests/support/recording_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <oxfilecache/kernel.h>
#include <oxfilecache/string.h>

namespace ox::testing {
namespace {

const std::string kGuard(8, '\xA5');

}  // namespace

struct RecordingMutex final : IOxMutex {
  RecordingMutex(RecordingHost& owner, std::string label) : host(owner), name(std::move(label)) {}
  int Lock() override {
    host.Log(name + "+");
    return ++depth;
  }
  int Unlock() override {
    host.Log(name + "-");
    EXPECT_GT(depth, 0) << "mutex " << name << " unlocked without a lock";
    return --depth;
  }

  RecordingHost& host;
  std::string name;
  int depth = 0;
};

class RecordingFile final : public os::filesystem::File {
 public:
  explicit RecordingFile(RecordingHost& host, std::string path = "")
      : host_(host), path_(std::move(path)) {}

  int SetPath(const char* utf8Path) override {
    const bool isRefused = Fails(std::string("SetPath ") + utf8Path);
    path_ = isRefused ? "" : utf8Path;
    return !isRefused;
  }
  int Open(int mode) override {
    if (Fails("Open " + std::to_string(mode)) || path_.empty()) return 0;
    if (mode == kOpenWrite) host_.WriteFile(path_, "");
    isOpen_ = host_.FindFile(path_) != nullptr;
    return isOpen_;
  }
  void Close() override {
    host_.Log("Close");
    isOpen_ = false;
  }
  int Delete(int flags) override {
    EXPECT_EQ(0, flags);
    if (Fails("Delete " + path_) || host_.FindFile(path_) == nullptr) return 0;
    host_.DeleteFile(path_);
    return 1;
  }
  int Exists() override {
    // Anything but 0 means yes; this one has no bit in its lowest byte.
    return !Fails("Exists") && host_.FindFile(path_) != nullptr ? 256 : 0;
  }
  void GetPath(OxString& out) override {
    host_.Log("GetPath");
    out = path_.c_str();
  }
  std::uint64_t GetSize() override {
    if (Fails("GetSize " + path_)) return 0;
    const StoredFile* file = host_.FindFile(path_);
    return (file != nullptr ? std::uint64_t{file->bytes.size()} : 0) | host_.highBits;
  }
  std::uint64_t Read(std::uint64_t count, void* destination) override {
    EXPECT_TRUE(isOpen_);
    if (Fails("Read " + std::to_string(count))) return 0;
    const std::string& bytes = host_.FindFile(path_)->bytes;
    const auto part = bytes.copy(static_cast<char*>(destination), static_cast<std::size_t>(count));
    return host_.claimedRead != 0 ? host_.claimedRead : part;
  }
  std::uint64_t Write(std::uint64_t count, const void* source) override {
    EXPECT_TRUE(isOpen_);
    if (Fails("Write " + std::to_string(count))) count /= 2;
    host_.FindFile(path_)->bytes.assign(static_cast<const char*>(source),
                                        static_cast<std::size_t>(count));
    return count;
  }
  int EnumerateDirectory(EnumerateCallback callback, void* context, int flags) override {
    EXPECT_EQ(0, flags);
    if (Fails("EnumerateDirectory " + path_)) return 0;
    const std::vector<StoredFile> snapshot = host_.files;
    for (const StoredFile& file : snapshot) {
      if (file.path.substr(0, file.path.rfind('/')) != path_) continue;
      RecordingFile entry(host_, file.path);
      EXPECT_TRUE(callback(entry, file.isDirectory, context));
    }
    return 1;
  }

 private:
  bool Fails(const std::string& call) {
    host_.Log(call);
    return host_.fileFaults.Next();
  }

  RecordingHost& host_;
  std::string path_;  // empty when none was bound
  bool isOpen_ = false;
};

RecordingHost::RecordingHost() {
  SetKernel(this);
}

RecordingHost::~RecordingHost() {
  for (const auto& block : blocks_)
    std::free(block.first);
  SetKernel(nullptr);
}

StoredFile* RecordingHost::FindFile(const std::string& path) {
  for (StoredFile& file : files) {
    if (file.path == path) return &file;
  }
  return nullptr;
}

void RecordingHost::WriteFile(const std::string& path, const std::string& bytes) {
  if (FindFile(path) == nullptr) files.push_back({path, "", false});
  FindFile(path)->bytes = bytes;
}

void RecordingHost::DeleteFile(const std::string& path) {
  const auto isMeant = [&](const StoredFile& file) { return file.path == path; };
  files.erase(std::remove_if(files.begin(), files.end(), isMeant), files.end());
}

std::map<std::string, std::string> RecordingHost::Disk() const {
  std::map<std::string, std::string> disk;
  for (const StoredFile& file : files)
    disk[file.path] = file.bytes;
  return disk;
}

bool RecordingHost::EveryMutexIsFree() const {
  return std::all_of(mutexes_.begin(), mutexes_.end(),
                     [](const auto& mutex) { return mutex.second->depth == 0; });
}

void* RecordingHost::GetInterface(const char* name) {
  Log(std::string("GetInterface ") + name);
  return serviceFaults.Next() ? nullptr : static_cast<IFileSystem*>(this);
}

void RecordingHost::ReleaseInterface(void* interface) {
  Log("ReleaseInterface");
  EXPECT_EQ(static_cast<IFileSystem*>(this), interface);
}

IOxMutex* RecordingHost::CreateMutex() {
  if (serviceFaults.Next()) return nullptr;
  auto mutex = std::make_unique<RecordingMutex>(*this, std::string(1, "FEM"[mutexesMade_++ % 3]));
  Log("CreateMutex " + mutex->name);
  IOxMutex* made = mutex.get();
  mutexes_[made] = std::move(mutex);
  return made;
}

void RecordingHost::DestroyMutex(IOxMutex* mutex) {
  ASSERT_EQ(1U, mutexes_.count(mutex));
  EXPECT_EQ(0, mutexes_[mutex]->depth);
  Log("DestroyMutex " + mutexes_[mutex]->name);
  mutexes_.erase(mutex);
}

void* RecordingHost::Allocate(std::size_t bytes, const char* file, int line) {
  EXPECT_TRUE(file == nullptr && line == 0);
  if (memoryFaults.Next()) return nullptr;
  void* block = std::malloc(bytes + kGuard.size());
  // Neither the module nor its strings may count on fresh memory being clean, or write behind it.
  std::memset(block, kGuard[0], bytes + kGuard.size());
  blocks_[block] = bytes;
  return block;
}

void RecordingHost::Free(void* block, const char* file, int line) {
  EXPECT_TRUE(file == nullptr && line == 0);
  ASSERT_EQ(1U, blocks_.count(block)) << "freed twice or never allocated";
  EXPECT_EQ(0,
            std::memcmp(static_cast<char*>(block) + blocks_[block], kGuard.data(), kGuard.size()));
  blocks_.erase(block);
  std::free(block);
}

void* RecordingHost::MemCopy(void* dst, const void* src, std::size_t bytes) {
  const auto* from = static_cast<const char*>(src);
  const auto* to = static_cast<const char*>(dst);
  EXPECT_TRUE(from + bytes <= to || to + bytes <= from) << "overlapping copy";
  return std::memcpy(dst, src, bytes);
}

std::size_t RecordingHost::StrLen16(const std::uint16_t* text) {
  std::size_t length = 0;
  while (text[length] != 0)
    ++length;
  return length;
}

unsigned long RecordingHost::StrToUL(const char* text, char** end, int base) {
  EXPECT_EQ(nullptr, end);
  EXPECT_EQ(10, base);
  return std::strtoul(text, end, base);
}

os::filesystem::File* RecordingHost::CreateFile() {
  Log("CreateFile");
  if (fileFaults.Next()) return nullptr;
  auto file = std::make_unique<RecordingFile>(*this);
  os::filesystem::File* made = file.get();
  openFiles_[made] = std::move(file);
  return made;
}

void RecordingHost::DestroyFile(os::filesystem::File* file) {
  Log(file != nullptr ? "DestroyFile" : "DestroyFile null");
  if (file == nullptr) return;
  ASSERT_EQ(1U, openFiles_.erase(file));
}

int RecordingHost::GetDefaultDirectory(OxString& out) {
  Log("GetDefaultDirectory");
  if (fileFaults.Next()) return 0;
  out = defaultDirectory.c_str();
  return hasDefaultDirectory;
}

}  // namespace ox::testing

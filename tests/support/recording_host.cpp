#include "tests/support/recording_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "module/kernel_access.h"
#include "string/ox_string.h"

namespace ox::testing {
namespace {

const std::string kGuard(8, '\xA5');

}  // namespace

class RecordingMutex final : public IOxMutex {
 public:
  RecordingMutex(RecordingHost& host, std::string name) : host_(host), name_(std::move(name)) {}
  int Lock() override {
    host_.Log(name_ + "+");
    ++depth_;
    return 1;
  }
  int Unlock() override {
    host_.Log(name_ + "-");
    EXPECT_GT(depth_, 0) << "mutex " << name_ << " unlocked without a lock";
    --depth_;
    return 1;
  }
  bool IsFree() const { return depth_ == 0; }
  const std::string& Name() const { return name_; }

 private:
  RecordingHost& host_;
  std::string name_;
  int depth_ = 0;
};

class RecordingFile final : public os::filesystem::File {
 public:
  explicit RecordingFile(RecordingHost& host, std::string path = "")
      : host_(host), path_(std::move(path)) {}

  int SetPath(const char* utf8Path) override {
    host_.Log(std::string("SetPath ") + utf8Path);
    path_ = utf8Path;
    isBound_ = !host_.fileFaults.Next();
    return isBound_;
  }
  int Open(int mode) override {
    host_.Log("Open " + std::to_string(mode));
    if (host_.fileFaults.Next() || !isBound_) return 0;
    StoredFile* file = host_.FindFile(path_);
    if (file != nullptr && file->isDirectory) return 0;
    if (mode == kOpenRead && file == nullptr) return 0;
    if (mode == kOpenWrite) host_.WriteFile(path_, "");
    isOpen_ = true;
    position_ = 0;
    return 1;
  }
  void Close() override {
    host_.Log("Close");
    isOpen_ = false;
  }
  int Delete(int flags) override {
    host_.Log("Delete " + path_);
    EXPECT_EQ(0, flags);
    if (host_.fileFaults.Next() || BoundFile() == nullptr) return 0;
    host_.DeleteFile(path_);
    return 1;
  }
  int Exists() override {
    host_.Log("Exists");
    // Anything but 0 means yes; this one has no bit in its lowest byte.
    return !host_.fileFaults.Next() && BoundFile() != nullptr ? 256 : 0;
  }
  void GetPath(OxString& out) override {
    host_.Log("GetPath");
    out = path_.c_str();
  }
  std::uint64_t GetSize() override {
    host_.Log("GetSize " + path_);
    if (host_.fileFaults.Next()) return 0;
    const StoredFile* file = BoundFile();
    return (file != nullptr ? std::uint64_t{file->bytes.size()} : 0) | host_.highBits;
  }
  std::uint64_t Read(std::uint64_t count, void* destination) override {
    host_.Log("Read " + std::to_string(count));
    EXPECT_TRUE(isOpen_);
    if (host_.fileFaults.Next()) return 0;
    const std::string& bytes = host_.FindFile(path_)->bytes;
    const std::size_t part = std::min(static_cast<std::size_t>(count), bytes.size() - position_);
    std::memcpy(destination, bytes.data() + position_, part);
    position_ += part;
    return host_.claimedRead != 0 ? host_.claimedRead : part;
  }
  std::uint64_t Write(std::uint64_t count, const void* source) override {
    host_.Log("Write " + std::to_string(count));
    EXPECT_TRUE(isOpen_);
    const auto part = static_cast<std::size_t>(host_.fileFaults.Next() ? count / 2 : count);
    host_.FindFile(path_)->bytes.append(static_cast<const char*>(source), part);
    return part;
  }
  int EnumerateDirectory(EnumerateCallback callback, void* context, int flags) override {
    host_.Log("EnumerateDirectory " + path_);
    EXPECT_EQ(0, flags);
    if (host_.fileFaults.Next() || !isBound_) return 0;
    const std::vector<StoredFile> snapshot = host_.files;
    const std::string prefix = path_ + "/";
    for (const StoredFile& file : snapshot) {
      if (file.path.compare(0, prefix.size(), prefix) != 0) continue;
      if (file.path.find('/', prefix.size()) != std::string::npos) continue;
      RecordingFile entry(host_, file.path);
      EXPECT_TRUE(callback(entry, file.isDirectory, context));
    }
    return 1;
  }

 private:
  StoredFile* BoundFile() { return isBound_ ? host_.FindFile(path_) : nullptr; }

  RecordingHost& host_;
  std::string path_;
  bool isBound_ = true;  // not after a path was refused
  bool isOpen_ = false;
  std::size_t position_ = 0;
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
  StoredFile* file = FindFile(path);
  if (file != nullptr) {
    file->bytes = bytes;
  } else {
    files.push_back({path, bytes, false});
  }
}

void RecordingHost::DeleteFile(const std::string& path) {
  files.erase(std::remove_if(files.begin(), files.end(),
                             [&](const StoredFile& file) { return file.path == path; }),
              files.end());
}

std::map<std::string, std::string> RecordingHost::Disk() const {
  std::map<std::string, std::string> disk;
  for (const StoredFile& file : files)
    disk[file.path] = file.bytes;
  return disk;
}

std::string RecordingHost::TakeLog() {
  std::string taken;
  taken.swap(log_);
  return taken;
}

bool RecordingHost::EveryMutexIsFree() const {
  return std::all_of(mutexes_.begin(), mutexes_.end(),
                     [](const auto& mutex) { return mutex.second->IsFree(); });
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
  const char* const names[] = {"F", "E", "M"};
  auto mutex = std::make_unique<RecordingMutex>(*this, names[mutexesMade_++ % 3]);
  Log("CreateMutex " + mutex->Name());
  IOxMutex* made = mutex.get();
  mutexes_[made] = std::move(mutex);
  return made;
}

void RecordingHost::DestroyMutex(IOxMutex* mutex) {
  ASSERT_EQ(1U, mutexes_.count(mutex));
  EXPECT_TRUE(mutexes_[mutex]->IsFree());
  Log("DestroyMutex " + mutexes_[mutex]->Name());
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

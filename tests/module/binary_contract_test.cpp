// The shared library that ships, driven as by a host that was built long ago: through tables of
// function pointers and field offsets written out here, without any of the project's headers.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

namespace {

using Slot = void (*)();

struct Object {
  const Slot* table;
};

template <typename Function>
Slot AsSlot(Function function) {
  return reinterpret_cast<Slot>(function);
}

// An OxString as it lies in memory. By-value results come through a hidden pointer because of the
// destructor, as the C++ ABI has it for classes with one.
struct Text {
  const Slot* table = nullptr;
  char* utf8 = nullptr;
  std::uint16_t* units = nullptr;
  std::uint32_t length = 0;
  std::uint32_t capacity = 0;
  std::uint16_t empty = 0;

  Text() = default;
  explicit Text(const char* ascii);
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  ~Text();

  std::string Ascii() const { return std::string(units, units + length); }
};

std::map<std::string, std::string> disk;
std::string log;
int liveBlocks = 0;
int liveMutexes = 0;

void* Allocate(void*, std::size_t bytes, const char*, int) {
  ++liveBlocks;
  return std::malloc(bytes);
}
void Free(void*, void* block, const char*, int) {
  --liveBlocks;
  std::free(block);
}

// Buffers of strings carry the header of the tagged allocator: 8 bytes, the second word 0.
template <typename Unit>
void FreeBuffer(Unit* buffer) {
  if (buffer != nullptr) Free(nullptr, reinterpret_cast<char*>(buffer) - 8, nullptr, 0);
}

Text::Text(const char* ascii) : length(static_cast<std::uint32_t>(std::strlen(ascii))) {
  capacity = length + 1;
  auto* block =
      static_cast<char*>(Allocate(nullptr, 8 + capacity * sizeof(std::uint16_t), nullptr, 0));
  std::memset(block, 0, 8);
  units = reinterpret_cast<std::uint16_t*>(block + 8);
  for (std::uint32_t i = 0; i <= length; ++i)
    units[i] = static_cast<unsigned char>(ascii[i]);
}

Text::~Text() {
  FreeBuffer(units);
  FreeBuffer(utf8);
}

// What the host's file objects and mutexes are here.
struct HostFile {
  const Slot* table;
  std::string path;
  std::size_t position;
};

using EnumerateCallback = bool (*)(void*, bool, void*);

int SetPath(HostFile* file, const char* path) {
  file->path = path;
  return 1;
}
int Open(HostFile* file, int mode) {
  log += "Open" + std::to_string(mode) + " ";
  if (mode == 2 && disk.count(file->path) == 0) return 0;
  if (mode == 0x35) disk[file->path].clear();
  file->position = 0;
  return 1;
}
void Close(HostFile*) {
  log += "Close ";
}
int Delete(HostFile* file, int) {
  return disk.erase(file->path) != 0;
}
int Exists(HostFile* file) {
  return disk.count(file->path) != 0 ? 256 : 0;
}
// Assigns through the string's own buffers, as any host's copy of the string code does.
void GetPath(HostFile* file, Text* out) {
  Text path(file->path.c_str());
  std::swap(out->units, path.units);
  std::swap(out->length, path.length);
  std::swap(out->capacity, path.capacity);
}
std::uint64_t GetSize(HostFile* file) {
  return disk.count(file->path) != 0 ? disk[file->path].size() : 0;
}
std::uint64_t Read(HostFile* file, std::uint64_t count, void* to) {
  const std::string part = disk[file->path].substr(file->position, static_cast<std::size_t>(count));
  std::memcpy(to, part.data(), part.size());
  return part.size();
}
std::uint64_t Write(HostFile* file, std::uint64_t count, const void* from) {
  disk[file->path].append(static_cast<const char*>(from), static_cast<std::size_t>(count));
  return count;
}
int Enumerate(HostFile* file, EnumerateCallback callback, void* context, int);

const Slot kFileTable[] = {AsSlot(&SetPath), AsSlot(&Open),     AsSlot(&Close),   AsSlot(&Delete),
                           AsSlot(&Exists),  AsSlot(&GetPath),  AsSlot(&GetSize), AsSlot(&Read),
                           AsSlot(&Write),   AsSlot(&Enumerate)};

int Enumerate(HostFile* file, EnumerateCallback callback, void* context, int) {
  const auto snapshot = disk;
  for (const auto& entry : snapshot) {
    if (entry.first.compare(0, file->path.size() + 1, file->path + "/") != 0) continue;
    HostFile found{kFileTable, entry.first, 0};
    EXPECT_TRUE(callback(&found, false, context));
  }
  return 1;
}

HostFile* CreateFile(void*) {
  return new HostFile{kFileTable, "", 0};
}
void DestroyFile(void*, HostFile* file) {
  delete file;
}
int GetDefaultDirectory(void*, Text* out) {
  HostFile directory{kFileTable, "/c", 0};
  GetPath(&directory, out);
  return 1;
}
const Slot kFileSystemTable[] = {AsSlot(&CreateFile), AsSlot(&DestroyFile),
                                 AsSlot(&GetDefaultDirectory)};
Object fileSystem = {kFileSystemTable};

struct HostMutex {
  const Slot* table;
  int depth;
};
int Lock(HostMutex* mutex) {
  return ++mutex->depth;
}
int Unlock(HostMutex* mutex) {
  return mutex->depth--;
}
const Slot kMutexTable[] = {AsSlot(&Lock), AsSlot(&Unlock)};

void* GetInterface(void*, const char* name) {
  return std::strcmp(name, "IFileSystem") == 0 ? &fileSystem : nullptr;
}
void ReleaseInterface(void*, void* interface) {
  EXPECT_EQ(&fileSystem, interface);
}
HostMutex* CreateMutex(void*) {
  ++liveMutexes;
  return new HostMutex{kMutexTable, 0};
}
void DestroyMutex(void*, HostMutex* mutex) {
  --liveMutexes;
  EXPECT_EQ(0, mutex->depth);
  delete mutex;
}
void* MemSet(void*, void* to, int value, std::size_t bytes) {
  return std::memset(to, value, bytes);
}
void* MemCopy(void*, void* to, const void* from, std::size_t bytes) {
  return std::memcpy(to, from, bytes);
}
std::size_t StrLen16(void*, const std::uint16_t* text) {
  std::size_t length = 0;
  while (text[length] != 0)
    ++length;
  return length;
}
std::size_t StrLen(void*, const char* text) {
  return std::strlen(text);
}
int StrCmp(void*, const char* a, const char* b) {
  return std::strcmp(a, b);
}
char* StrCpy(void*, char* to, const char* from) {
  return std::strcpy(to, from);
}
const char* StrStr(void*, const char* in, const char* what) {
  return std::strstr(in, what);
}
unsigned long StrToUL(void*, const char* text, char** end, int base) {
  return std::strtoul(text, end, base);
}
const Slot kKernelTable[] = {AsSlot(&GetInterface), AsSlot(&ReleaseInterface), AsSlot(&CreateMutex),
                             AsSlot(&DestroyMutex), AsSlot(&Allocate),         AsSlot(&Free),
                             AsSlot(&MemSet),       AsSlot(&MemCopy),          AsSlot(&StrLen16),
                             AsSlot(&StrLen),       AsSlot(&StrCmp),           AsSlot(&StrCpy),
                             AsSlot(&StrStr),       AsSlot(&StrToUL)};
Object kernel = {kKernelTable};

// Calls slot `index` of an object of the module.
template <typename Result, typename... Args>
Result Call(Object* object, int index, Args... args) {
  return reinterpret_cast<Result (*)(Object*, Args...)>(object->table[index])(object, args...);
}

// Slots of the module's interfaces.
enum FactorySlot { kCreateCacheManager = 2, kDestroyCacheManager = 3 };
enum ManagerSlot {
  kAdd,
  kGet,
  kRemove,
  kGetMaxSize,
  kSetMaxSize,
  kGetMaxCacheValueSize,
  kSetMaxCacheValueSize,
  kGetMaxEntries,
  kSetMaxEntries,
  kGetDataDir,
  kSetDataDir,
  kCreateCacheValue,
  kDestroyCacheValue,
  kAddPrivate = 15
};
enum EntrySlot { kEntryGetSize, kEntryGetURL, kEntryGetFile, kEntryGetMetaData };

// The manager's fields in their order.
struct ManagerFields {
  const Slot* table;
  Text configFilePath;
  Text cacheDirectory;
  std::uint32_t maxEntries;
  std::uint32_t maxEntrySize;
  std::uint32_t maxSize;
  Object* kernel;
  struct Node* head;
  struct Node* tail;
  std::uint32_t entryCount;
  void* mutex;
  std::uint32_t currentSize;
  Text dataDir;
};
struct Node {
  Object* value;
  Node* newer;
  Node* older;
};
struct EntryFields {
  const Slot* table;
  bool pending;
  Text url;
  Text file;
  Text metaData;
  std::uint32_t size;
};

class BinaryContract : public ::testing::Test {
 protected:
  BinaryContract() {
    disk.clear();
    disk["/c/file-cache.conf"] = "MAX_CACHE_ENTRIES=2\n";
    library_ = dlopen(OX_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(nullptr, library_) << dlerror();
    Function<void (*)(void*)>("IOxModule_OxModule_PutKernel")(&kernel);
    Load();
  }

  ~BinaryContract() override {
    Unload();
    dlclose(library_);
    EXPECT_EQ(0, liveBlocks);
    EXPECT_EQ(0, liveMutexes);
  }

  void Load() {
    factory_ = Function<Object* (*)()>("IOxModule_ICacheManager_ModuleLoad")();
    manager_ = Call<Object*>(factory_, kCreateCacheManager);
  }

  void Unload() {
    Call<void>(factory_, kDestroyCacheManager, manager_);
    Function<void (*)(Object*)>("IOxModule_ICacheManager_ModuleUnload")(factory_);
  }

  template <typename Type>
  Type Function(const char* name) {
    return reinterpret_cast<Type>(dlsym(library_, name));
  }

  Object* Create(const char* url, const char* metaData) {
    const Text urlText(url);
    const Text metaDataText(metaData);
    const unsigned long size = 0;
    return Call<Object*>(manager_, kCreateCacheValue, &urlText, &size, &metaDataText);
  }

  Object* Get(const char* url) {
    const Text text(url);
    return Call<Object*>(manager_, kGet, &text);
  }

  std::string TextOf(Object* object, int slot) {
    return reinterpret_cast<Text (*)(Object*)>(object->table[slot])(object).Ascii();
  }

  void* library_ = nullptr;
  Object* factory_ = nullptr;
  Object* manager_ = nullptr;
};

const char kAbc[] = "/c/09100589C32DF40B6D69F3D7821EF727";

TEST_F(BinaryContract, TheLifeOfAnEntryOverTwoStarts) {
  Object* entry = Create("abc", "meta");
  ASSERT_NE(nullptr, entry);
  EXPECT_EQ(kAbc, TextOf(entry, kEntryGetFile));
  EXPECT_EQ("abc", TextOf(entry, kEntryGetURL));
  disk[kAbc] = "content";
  log.clear();
  ASSERT_TRUE(Call<bool>(manager_, kAdd, entry));
  EXPECT_EQ("Open53 Close ", log);
  EXPECT_EQ("meta", disk[std::string(kAbc) + ".ox_meta"]);
  EXPECT_FALSE(Call<bool>(manager_, kAddPrivate, entry));  // listed already

  Unload();
  Load();
  entry = Get("abc");
  ASSERT_NE(nullptr, entry);
  EXPECT_EQ("meta", TextOf(entry, kEntryGetMetaData));
  EXPECT_EQ(7U, Call<unsigned long>(entry, kEntryGetSize));
  EXPECT_TRUE(Call<bool>(manager_, kRemove, entry));
  EXPECT_EQ(1U, disk.size());
}

TEST_F(BinaryContract, EverySlotOfTheManager) {
  const unsigned long size = 5000;
  const unsigned long entrySize = 4000;
  const unsigned long entries = 1;
  Call<void>(manager_, kSetMaxSize, &size);
  Call<void>(manager_, kSetMaxCacheValueSize, &entrySize);
  Call<void>(manager_, kSetMaxEntries, &entries);
  EXPECT_EQ(5000U, Call<unsigned long>(manager_, kGetMaxSize));
  EXPECT_EQ(4000U, Call<unsigned long>(manager_, kGetMaxCacheValueSize));
  EXPECT_EQ(1U, Call<unsigned long>(manager_, kGetMaxEntries));
  {
    const Text directory("/data");
    Call<void>(manager_, kSetDataDir, &directory);
  }
  EXPECT_EQ("/data", TextOf(manager_, kGetDataDir));
  Object* entry = Create("abc", "meta");
  ASSERT_NE(nullptr, entry);
  EXPECT_EQ(nullptr, Create("second", "meta"));
  Call<void>(manager_, kDestroyCacheValue, entry);
  EXPECT_NE(nullptr, Create("second", "meta"));
}

TEST_F(BinaryContract, FieldsStandInTheirOrder) {
  Object* older = Create("abc", "meta");
  Object* newer = Create("second", "longer meta");
  const auto& fields = *reinterpret_cast<const ManagerFields*>(manager_);
  EXPECT_EQ("/c/file-cache.conf", fields.configFilePath.Ascii());
  EXPECT_EQ("/c", fields.cacheDirectory.Ascii());
  EXPECT_EQ(2U, fields.maxEntries);
  EXPECT_EQ(65536U, fields.maxEntrySize);
  EXPECT_EQ(1048576U, fields.maxSize);
  EXPECT_EQ(&kernel, fields.kernel);
  EXPECT_EQ(newer, fields.head->value);
  EXPECT_EQ(nullptr, fields.head->newer);
  EXPECT_EQ(fields.tail, fields.head->older);
  EXPECT_EQ(older, fields.tail->value);
  EXPECT_EQ(fields.head, fields.tail->newer);
  EXPECT_EQ(2U, fields.entryCount);
  EXPECT_EQ(15U, fields.currentSize);
  EXPECT_EQ(0U, fields.dataDir.length);

  const auto& entry = *reinterpret_cast<const EntryFields*>(newer);
  EXPECT_TRUE(entry.pending);
  EXPECT_EQ("second", entry.url.Ascii());
  EXPECT_EQ(TextOf(newer, kEntryGetFile), entry.file.Ascii());
  EXPECT_EQ("longer meta", entry.metaData.Ascii());
  EXPECT_EQ(0U, entry.size);
}

}  // namespace

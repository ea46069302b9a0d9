// The shared library that ships, driven as by a host that was built long ago: through slots of
// tables and offsets of fields written out here. The host's own tables, which the library calls
// through, are read off its interfaces and compared with what is written out here too.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/recording_host.h"
#include <oxfilecache/mutex.h>
#include <oxfilecache/string.h>

namespace ox::testing {
namespace {

using os::filesystem::File;

const std::string kAbc = "/c/09100589C32DF40B6D69F3D7821EF727";

// The slot of a virtual operation of that type. A pointer to it begins with the offset of the slot,
// and some processors mark it in the lowest bit.
template <typename Type, typename Interface>
std::size_t SlotOf(Type Interface::*operation) {
  std::uintptr_t offset = 0;
  std::memcpy(&offset, &operation, sizeof offset);
  return offset / sizeof(void*);
}

TEST(BinaryContractOfHosts, OperationsStandInTheirOrder) {
  const std::vector<std::size_t> interfaces[] = {
      {SlotOf<void*(const char*)>(&IOxKernel::GetInterface),
       SlotOf<void(void*)>(&IOxKernel::ReleaseInterface),
       SlotOf<IOxMutex*()>(&IOxKernel::CreateMutex),
       SlotOf<void(IOxMutex*)>(&IOxKernel::DestroyMutex),
       SlotOf<void*(std::size_t, const char*, int)>(&IOxKernel::Allocate),
       SlotOf<void(void*, const char*, int)>(&IOxKernel::Free),
       SlotOf<void*(void*, int, std::size_t)>(&IOxKernel::MemSet),
       SlotOf<void*(void*, const void*, std::size_t)>(&IOxKernel::MemCopy),
       SlotOf<std::size_t(const std::uint16_t*)>(&IOxKernel::StrLen16),
       SlotOf<std::size_t(const char*)>(&IOxKernel::StrLen),
       SlotOf<int(const char*, const char*)>(&IOxKernel::StrCmp),
       SlotOf<char*(char*, const char*)>(&IOxKernel::StrCpy),
       SlotOf<const char*(const char*, const char*)>(&IOxKernel::StrStr),
       SlotOf<unsigned long(const char*, char**, int)>(&IOxKernel::StrToUL)},
      {SlotOf<File*()>(&IFileSystem::CreateFile), SlotOf<void(File*)>(&IFileSystem::DestroyFile),
       SlotOf<int(OxString&)>(&IFileSystem::GetDefaultDirectory)},
      {SlotOf<int(const char*)>(&File::SetPath), SlotOf<int(int)>(&File::Open),
       SlotOf<void()>(&File::Close), SlotOf<int(int)>(&File::Delete), SlotOf<int()>(&File::Exists),
       SlotOf<void(OxString&)>(&File::GetPath), SlotOf<std::uint64_t()>(&File::GetSize),
       SlotOf<std::uint64_t(std::uint64_t, void*)>(&File::Read),
       SlotOf<std::uint64_t(std::uint64_t, const void*)>(&File::Write),
       SlotOf<int(bool (*)(File&, bool, void*), void*, int)>(&File::EnumerateDirectory)},
      {SlotOf<int()>(&IOxMutex::Lock), SlotOf<int()>(&IOxMutex::Unlock)},
  };
  for (const auto& slots : interfaces) {
    for (std::size_t slot = 0; slot < slots.size(); ++slot)
      EXPECT_EQ(slot, slots[slot]) << "of " << slots.size();
  }
}

struct Object {
  void (*const* table)();
};

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
  void (*const* table)();
  OxString configFilePath;
  OxString cacheDirectory;
  std::uint32_t maxEntries;
  std::uint32_t maxEntrySize;
  std::uint32_t maxSize;
  IOxKernel* kernel;
  struct Node* head;
  struct Node* tail;
  std::uint32_t entryCount;
  void* mutex;
  std::uint32_t currentSize;
  OxString dataDir;
};
struct Node {
  Object* value;
  Node* newer;
  Node* older;
};
struct EntryFields {
  void (*const* table)();
  bool pending;
  OxString url;
  OxString file;
  OxString metaData;
  std::uint32_t size;
};

class BinaryContract : public ::testing::Test {
 protected:
  BinaryContract() {
    host_.WriteFile("/c/file-cache.conf", "MAX_CACHE_ENTRIES=2\n");
    library_ = dlopen(OX_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(nullptr, library_) << dlerror();
    Function<void (*)(IOxKernel*)>("IOxModule_OxModule_PutKernel")(&host_);
    Load();
  }

  ~BinaryContract() override {
    Unload();
    dlclose(library_);
    EXPECT_EQ(0U, host_.LiveBlocks());
    EXPECT_EQ(0U, host_.LiveMutexes());
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
    const OxString urlText(url);
    const OxString metaDataText(metaData);
    const unsigned long size = 0;
    return Call<Object*>(manager_, kCreateCacheValue, &urlText, &size, &metaDataText);
  }

  Object* Get(const char* url) {
    const OxString text(url);
    return Call<Object*>(manager_, kGet, &text);
  }

  std::string TextOf(Object* object, int slot) { return Call<OxString>(object, slot).UTF8(); }

  RecordingHost host_;
  void* library_ = nullptr;
  Object* factory_ = nullptr;
  Object* manager_ = nullptr;
};

TEST_F(BinaryContract, TheLifeOfAnEntryOverTwoStarts) {
  Object* entry = Create("abc", "meta");
  ASSERT_NE(nullptr, entry);
  EXPECT_EQ(kAbc, TextOf(entry, kEntryGetFile));
  EXPECT_EQ("abc", TextOf(entry, kEntryGetURL));
  host_.WriteFile(kAbc, "content");
  ASSERT_TRUE(Call<bool>(manager_, kAdd, entry));
  EXPECT_EQ("meta", host_.Disk()[kAbc + ".ox_meta"]);
  EXPECT_FALSE(Call<bool>(manager_, kAddPrivate, entry));  // listed already

  Unload();
  Load();
  entry = Get("abc");
  ASSERT_NE(nullptr, entry);
  EXPECT_EQ("meta", TextOf(entry, kEntryGetMetaData));
  EXPECT_EQ(7U, Call<unsigned long>(entry, kEntryGetSize));
  EXPECT_TRUE(Call<bool>(manager_, kRemove, entry));
  EXPECT_EQ(1U, host_.files.size());
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
  const OxString directory("/data");
  Call<void>(manager_, kSetDataDir, &directory);
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
  EXPECT_EQ("/c/file-cache.conf", std::string(fields.configFilePath.UTF8()));
  EXPECT_EQ("/c", std::string(fields.cacheDirectory.UTF8()));
  EXPECT_EQ(2U, fields.maxEntries);
  EXPECT_EQ(65536U, fields.maxEntrySize);
  EXPECT_EQ(1048576U, fields.maxSize);
  EXPECT_EQ(&host_, fields.kernel);
  EXPECT_EQ(newer, fields.head->value);
  EXPECT_EQ(nullptr, fields.head->newer);
  EXPECT_EQ(fields.tail, fields.head->older);
  EXPECT_EQ(older, fields.tail->value);
  EXPECT_EQ(fields.head, fields.tail->newer);
  EXPECT_EQ(2U, fields.entryCount);
  EXPECT_EQ(15U, fields.currentSize);
  EXPECT_EQ(0U, fields.dataDir.Length());

  const auto& entry = *reinterpret_cast<const EntryFields*>(newer);
  EXPECT_TRUE(entry.pending);
  EXPECT_EQ("second", std::string(entry.url.UTF8()));
  EXPECT_EQ(TextOf(newer, kEntryGetFile), std::string(entry.file.UTF8()));
  EXPECT_EQ("longer meta", std::string(entry.metaData.UTF8()));
  EXPECT_EQ(0U, entry.size);
}

}  // namespace
}  // namespace ox::testing

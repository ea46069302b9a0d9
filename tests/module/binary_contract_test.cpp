// What hosts rely on that were built long ago, written out here: the slots of the operations in
// their tables, and the offsets of the fields that they look into, in the shared library that
// ships.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "cache/file_cache_manager_impl.h"
#include "tests/support/recording_host.h"
#include <oxfilecache/module.h>

namespace ox::testing {
namespace {

using core::cache::CacheValue;
using core::cache::FileCacheManager;
using core::cache::FileCacheManagerImpl;
using core::cache::ICacheManager;
using os::filesystem::File;
using Ulong = unsigned long;

// The slot of a virtual operation of that type. A pointer to it begins with the offset of the slot,
// and some processors mark it in the lowest bit.
template <typename Type, typename Interface>
std::size_t SlotOf(Type Interface::*operation) {
  std::uintptr_t offset = 0;
  std::memcpy(&offset, &operation, sizeof offset);
  return offset / sizeof(void*);
}

constexpr std::size_t kDestructor = SIZE_MAX;  // which takes two slots

TEST(BinaryContract, OperationsStandInTheirOrder) {
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
       SlotOf<Ulong(const char*, char**, int)>(&IOxKernel::StrToUL)},
      {SlotOf<File*()>(&IFileSystem::CreateFile), SlotOf<void(File*)>(&IFileSystem::DestroyFile),
       SlotOf<int(OxString&)>(&IFileSystem::GetDefaultDirectory)},
      {SlotOf<int(const char*)>(&File::SetPath), SlotOf<int(int)>(&File::Open),
       SlotOf<void()>(&File::Close), SlotOf<int(int)>(&File::Delete), SlotOf<int()>(&File::Exists),
       SlotOf<void(OxString&)>(&File::GetPath), SlotOf<std::uint64_t()>(&File::GetSize),
       SlotOf<std::uint64_t(std::uint64_t, void*)>(&File::Read),
       SlotOf<std::uint64_t(std::uint64_t, const void*)>(&File::Write),
       SlotOf<int(bool (*)(File&, bool, void*), void*, int)>(&File::EnumerateDirectory)},
      {SlotOf<int()>(&IOxMutex::Lock), SlotOf<int()>(&IOxMutex::Unlock)},
      {kDestructor, kDestructor, SlotOf<FileCacheManager*()>(&ICacheManager::CreateCacheManager),
       SlotOf<void(FileCacheManager*)>(&ICacheManager::DestroyCacheManager)},
      {SlotOf<bool(CacheValue*)>(&FileCacheManager::Add),
       SlotOf<CacheValue*(const OxString&)>(&FileCacheManager::Get),
       SlotOf<bool(CacheValue*)>(&FileCacheManager::Remove),
       SlotOf<Ulong()>(&FileCacheManager::GetMaxSize),
       SlotOf<void(const Ulong&)>(&FileCacheManager::SetMaxSize),
       SlotOf<Ulong()>(&FileCacheManager::GetMaxCacheValueSize),
       SlotOf<void(const Ulong&)>(&FileCacheManager::SetMaxCacheValueSize),
       SlotOf<Ulong()>(&FileCacheManager::GetMaxEntries),
       SlotOf<void(const Ulong&)>(&FileCacheManager::SetMaxEntries),
       SlotOf<OxString()>(&FileCacheManager::GetDataDir),
       SlotOf<void(const OxString&)>(&FileCacheManager::SetDataDir),
       SlotOf<CacheValue*(const OxString&, const Ulong&, const OxString&)>(
           &FileCacheManager::CreateCacheValue),
       SlotOf<void(CacheValue*)>(&FileCacheManager::DestroyCacheValue), kDestructor, kDestructor,
       SlotOf<bool(CacheValue*)>(&FileCacheManagerImpl::AddPrivate)},
      {SlotOf<Ulong()>(&CacheValue::GetSize), SlotOf<OxString()>(&CacheValue::GetURL),
       SlotOf<OxString()>(&CacheValue::GetFile), SlotOf<OxString()>(&CacheValue::GetMetaData)},
  };
  for (const auto& slots : interfaces) {
    for (std::size_t slot = 0; slot < slots.size(); ++slot)
      EXPECT_TRUE(slots[slot] == slot || slots[slot] == kDestructor)
          << slot << " of " << slots.size();
  }
}

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
  CacheValue* value;
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

TEST(BinaryContract, FieldsStandInTheirOrder) {
  RecordingHost host;
  host.WriteFile("/c/file-cache.conf", "MAX_CACHE_ENTRIES=2\n");
  void* library = dlopen(OX_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(nullptr, library) << dlerror();
  const auto function = [&](const char* name) { return dlsym(library, name); };
  reinterpret_cast<void (*)(IOxKernel*)>(function("IOxModule_OxModule_PutKernel"))(&host);
  const auto load = function("IOxModule_ICacheManager_ModuleLoad");
  ICacheManager* factory = reinterpret_cast<ICacheManager* (*)()>(load)();
  FileCacheManager* manager = factory->CreateCacheManager();

  CacheValue* older = manager->CreateCacheValue("abc", 0, "meta");
  CacheValue* newer = manager->CreateCacheValue("second", 0, "longer meta");
  const auto& fields = *reinterpret_cast<const ManagerFields*>(manager);
  EXPECT_EQ("/c/file-cache.conf", std::string(fields.configFilePath.UTF8()));
  EXPECT_EQ("/c", std::string(fields.cacheDirectory.UTF8()));
  EXPECT_EQ(2U, fields.maxEntries);
  EXPECT_EQ(65536U, fields.maxEntrySize);
  EXPECT_EQ(1048576U, fields.maxSize);
  EXPECT_EQ(&host, fields.kernel);
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
  EXPECT_EQ(newer->GetFile().UTF8(), std::string(entry.file.UTF8()));
  EXPECT_EQ("longer meta", std::string(entry.metaData.UTF8()));
  EXPECT_EQ(0U, entry.size);

  factory->DestroyCacheManager(manager);
  const auto unload = function("IOxModule_ICacheManager_ModuleUnload");
  reinterpret_cast<void (*)(ICacheManager*)>(unload)(factory);
  dlclose(library);
  EXPECT_EQ(0U, host.LiveBlocks() + host.LiveMutexes());
}

}  // namespace
}  // namespace ox::testing

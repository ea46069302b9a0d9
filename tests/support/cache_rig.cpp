#include "tests/support/cache_rig.h"

namespace ox::testing {

using core::cache::CacheValue;

const char kAbcPath[] = "/c/09100589C32DF40B6D69F3D7821EF727";

CacheRig::CacheRig(const std::string& configuration) {
  if (!configuration.empty()) host.WriteFile("/c/file-cache.conf", configuration);
}

CacheRig::~CacheRig() {
  host.memoryFaults.Disarm();
  host.fileFaults.Disarm();
  host.serviceFaults.Disarm();
  Stop();
  EXPECT_EQ(0U, host.LiveBlocks());
  EXPECT_EQ(0U, host.LiveMutexes());
  EXPECT_EQ(0U, host.LiveFiles());
}

bool CacheRig::Start() {
  if (factory == nullptr) factory = IOxModule_ICacheManager_ModuleLoad();
  if (factory != nullptr && manager == nullptr) manager = factory->CreateCacheManager();
  return manager != nullptr;
}

void CacheRig::Stop() {
  if (manager != nullptr) factory->DestroyCacheManager(manager);
  manager = nullptr;
  IOxModule_ICacheManager_ModuleUnload(factory);
  factory = nullptr;
}

void CacheRig::Restart() {
  Stop();
  ASSERT_TRUE(Start());
}

CacheValue* CacheRig::Store(const std::string& url, const std::string& content,
                            const std::string& metadata) {
  CacheValue* value = Create(url, content.size(), metadata);
  if (value == nullptr) return nullptr;
  host.WriteFile(Utf8(value->GetFile()), content);
  return manager->Add(value) ? value : nullptr;
}

void CacheRig::LeavePair(const std::string& path, const std::string& content,
                         const std::string& metadata) {
  host.WriteFile(path, content);
  host.WriteFile(path + ".ox_meta", metadata);
}

}  // namespace ox::testing

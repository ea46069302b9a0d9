// The module started on a recording host, and the moves that most histories consist of.
#ifndef OX_TESTS_SUPPORT_CACHE_RIG_H_
#define OX_TESTS_SUPPORT_CACHE_RIG_H_

#include <gtest/gtest.h>

#include <string>

#include "tests/support/recording_host.h"
#include <oxfilecache/manager.h>
#include <oxfilecache/module.h>

namespace ox::testing {

inline std::string Utf8(const OxString& text) {
  return text.UTF8();
}

class CacheRig {
 public:
  // The configuration file, unless it is empty; and where the cache then is.
  explicit CacheRig(const std::string& configuration = "MAX_CACHE_ENTRIES=100\n");
  // Stops and checks that nothing is left with the module.
  ~CacheRig();

  // Makes the factory and the manager. False when either could not be made.
  bool Start();
  void Stop();
  void Restart();

  RecordingHost host;
  core::cache::ICacheManager* factory = nullptr;
  core::cache::FileCacheManager* manager = nullptr;

  // A pending entry, null when refused.
  core::cache::CacheValue* Create(const std::string& url, unsigned long size,
                                  const std::string& metadata) {
    return manager->CreateCacheValue(url.c_str(), size, metadata.c_str());
  }
  // Create, write the content, commit. Null when any of it is refused.
  core::cache::CacheValue* Store(const std::string& url, const std::string& content,
                                 const std::string& metadata);
  core::cache::CacheValue* Get(const std::string& url) { return manager->Get(url.c_str()); }
  bool Has(const std::string& url) { return Get(url) != nullptr; }
  // Puts a pair on the disk as an earlier run would have left it.
  void LeavePair(const std::string& path, const std::string& content, const std::string& metadata);
};

// One that has started.
class StartedRig : public CacheRig {
 public:
  explicit StartedRig(const std::string& configuration = "MAX_CACHE_ENTRIES=100\n")
      : CacheRig(configuration) {
    EXPECT_TRUE(Start());
  }
};

// Content file of the URL "abc" in the cache directory "/c".
extern const char kAbcPath[];

}  // namespace ox::testing

#endif

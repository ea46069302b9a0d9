// The shared library on real files, over several lives of its manager.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/counting_kernel.h"
#include "tests/support/scratch_directory.h"
#include <oxfilecache/host.h>

namespace ox::testing {
namespace {

using core::cache::CacheValue;
using host::LoadedModule;
using host::ManagerReference;
using host::PosixKernel;

class Life {
 public:
  explicit Life(const std::string& directory) : inner_(directory) {
    std::string error;
    module_ = LoadedModule::Load(OX_MODULE_PATH, kernel_, &error);
    EXPECT_NE(nullptr, module_) << error;
    manager_ = std::make_unique<ManagerReference>(*module_);
    EXPECT_TRUE(*manager_);
  }
  ~Life() {
    manager_.reset();
    module_.reset();
    EXPECT_EQ(0U, kernel_.Held());
  }

  void Store(const std::string& url, const std::string& content) {
    CacheValue* value = (*manager_)->CreateCacheValue(url.c_str(), content.size(), "meta");
    ASSERT_NE(nullptr, value) << url;
    WriteWhole(value->GetFile().UTF8(), content);
    ASSERT_TRUE((*manager_)->Add(value));
  }
  std::string Fetch(const std::string& url) {
    CacheValue* value = (*manager_)->Get(url.c_str());
    return value != nullptr ? ReadWhole(value->GetFile().UTF8()) : "(none)";
  }

 private:
  PosixKernel inner_;
  CountingKernel kernel_{inner_};
  std::unique_ptr<LoadedModule> module_;
  std::unique_ptr<ManagerReference> manager_;
};

// A directory that ends in "/" doubles the separator in every path; scanned paths must double it
// too, or nothing is found after a restart.
TEST(Restart, FindsEverythingAgain) {
  for (const char* ending : {"", "/", "//"}) {
    const ScratchDirectory scratch;
    WriteWhole(scratch / "file-cache.conf", "MAX_CACHE_ENTRIES=50\n");
    const std::string binary("\0\xFF\r\n", 4);
    {
      Life first(scratch.Path() + ending);
      for (int i = 0; i < 20; ++i)
        first.Store("http://host/" + std::to_string(i), binary + std::to_string(i));
    }
    Life second(scratch.Path() + ending);
    for (int i = 0; i < 20; ++i) {
      EXPECT_EQ(binary + std::to_string(i), second.Fetch("http://host/" + std::to_string(i)))
          << ending;
    }
    EXPECT_EQ("(none)", second.Fetch("http://host/20"));
  }
}

TEST(Loader, SaysWhyItCannotLoad) {
  const ScratchDirectory scratch;
  PosixKernel kernel(scratch.Path());
  std::string error;
  EXPECT_EQ(nullptr, LoadedModule::Load(scratch / "missing.so", kernel, &error));
  EXPECT_NE(std::string::npos, error.find("missing.so")) << error;
  EXPECT_EQ(nullptr, LoadedModule::Load("libdl.so.2", kernel, &error));
  EXPECT_NE(std::string::npos, error.find("entry point")) << error;

  const auto module = LoadedModule::Load(OX_MODULE_PATH, kernel, &error);
  ASSERT_NE(nullptr, module) << error;
  PosixKernel other(scratch.Path());
  EXPECT_EQ(nullptr, LoadedModule::Load(OX_MODULE_PATH, other, &error));
  EXPECT_NE(std::string::npos, error.find("another kernel")) << error;
}

}  // namespace
}  // namespace ox::testing

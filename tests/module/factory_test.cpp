// Entry points, the factory and its reference count.
#include <gtest/gtest.h>

#include "tests/support/cache_rig.h"
#include <oxfilecache/kernel.h>

namespace ox::testing {
namespace {

TEST(Factory, OneManagerUnderACount) {
  StartedRig rig;
  EXPECT_EQ(rig.manager, rig.factory->CreateCacheManager());
  rig.factory->DestroyCacheManager(nullptr);  // any pointer gives one reference back
  ASSERT_NE(nullptr, rig.Store("abc", "content", "meta"));
  rig.factory->DestroyCacheManager(rig.manager);
  EXPECT_EQ(1U, rig.host.LiveMutexes());
  rig.manager = nullptr;
  ASSERT_TRUE(rig.Start());
  EXPECT_TRUE(rig.Has("abc"));
}

TEST(Factory, OneReferenceTooManyGivenBackWraps) {
  StartedRig rig;
  rig.factory->DestroyCacheManager(nullptr);
  rig.factory->DestroyCacheManager(nullptr);        // -1
  rig.manager = rig.factory->CreateCacheManager();  // a new one, at a count of 0
  rig.factory->CreateCacheManager();
  ASSERT_NE(nullptr, rig.Store("abc", "content", "meta"));
}

TEST(Factory, TheFirstKernelStays) {
  RecordingHost first;
  IOxModule_OxModule_PutKernel(nullptr);
  EXPECT_EQ(&first, IOxKernel::GetKernel());
  SetKernel(nullptr);
  IOxModule_OxModule_PutKernel(nullptr);
  EXPECT_EQ(nullptr, IOxKernel::GetKernel());
  EXPECT_EQ(nullptr, IOxModule_ICacheManager_ModuleLoad());
  IOxModule_OxModule_PutKernel(&first);
  EXPECT_EQ(&first, IOxKernel::GetKernel());
  {
    RecordingHost second;
    SetKernel(&first);
    IOxModule_OxModule_PutKernel(&second);
    EXPECT_EQ(&first, IOxKernel::GetKernel());
  }
  SetKernel(&first);
  IOxModule_ICacheManager_ModuleUnload(nullptr);
  EXPECT_EQ(&first, IOxKernel::GetKernel());
}

}  // namespace
}  // namespace ox::testing

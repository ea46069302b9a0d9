// Loading the module's shared library.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/scratch_directory.h"
#include <oxfilecache/host.h>

namespace ox::testing {
namespace {

using host::LoadedModule;
using host::PosixKernel;

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

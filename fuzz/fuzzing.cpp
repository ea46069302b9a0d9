// Every failed check of a fuzzer ends it, so that the input is kept.
#include <gtest/gtest.h>

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  GTEST_FLAG_SET(throw_on_failure, true);
  return 0;
}

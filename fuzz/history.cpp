// Whole histories, compared with the model.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>

#include "tests/support/model_history.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  ox::testing::ModelHistory history(
      [&](unsigned below) { return input.ConsumeIntegralInRange<unsigned>(0, below - 1); });
  while (input.remaining_bytes() > 0)
    history.Step();
  return 0;
}

// Random histories on the module and on a plain model of it.
#include <gtest/gtest.h>

#include <random>

#include "tests/support/model_history.h"

namespace ox::testing {
namespace {

void RunHistories(unsigned count, int steps, bool withFaults) {
  for (unsigned seed = 1; seed <= count; ++seed) {
    std::mt19937 random(seed);
    ModelHistory history([&](unsigned below) { return static_cast<unsigned>(random() % below); });
    for (int step = 0; step < steps; ++step) {
      history.Step();
      if (withFaults && random() % 8 == 0) history.StepWithFault();
      ASSERT_FALSE(::testing::Test::HasFatalFailure()) << "seed " << seed << ", step " << step;
    }
  }
}

TEST(Model, RandomHistoriesAgree) {
  RunHistories(40, 1000, false);
}

TEST(Model, RandomHistoriesWithFaultsAgree) {
  RunHistories(20, 500, true);
}

}  // namespace
}  // namespace ox::testing

// Random histories on the module and on a plain model of it.
#include <gtest/gtest.h>

#include <random>

#include "tests/support/model_history.h"

namespace ox::testing {
namespace {

TEST(Model, RandomHistoriesAgree) {
  for (unsigned seed = 1; seed <= 50; ++seed) {
    std::mt19937 random(seed);
    ModelHistory history([&](unsigned below) { return static_cast<unsigned>(random() % below); });
    for (int step = 0; step < 1000; ++step) {
      history.Step();
      ASSERT_FALSE(HasFatalFailure()) << "seed " << seed << ", step " << step;
    }
  }
}

}  // namespace
}  // namespace ox::testing

// What programs would otherwise write by hand around a session.
#include <gtest/gtest.h>

#include "tests/support/session_rig.h"

namespace ox::testing {
namespace {

class SessionConveniencesTest : public ::testing::Test {
 protected:
  const CacheDirectory directory_{{65536, 10, 8192}};
  SessionOptions options_ = OptionsFor(directory_.Path());
};

TEST_F(SessionConveniencesTest, AWriterThatOutlivesItsSessionGetsErrors) {
  auto session = OpenSession(options_);
  ASSERT_FALSE(Store(*session, "a", "old", "1"));
  Error error;
  auto writer = Write(*session, "a", "new", &error);
  session.reset();
  EXPECT_EQ(writer->Write("x", 1).kind, ErrorKind::kInvalidArgument);
  EXPECT_EQ(writer->Commit("2").kind, ErrorKind::kInvalidArgument);
  writer.reset();
  EXPECT_TRUE(Look(directory_.Path()).staging.empty());
  EXPECT_EQ(Fetch(*OpenSession(options_), "a"), "old|1");
}

}  // namespace
}  // namespace ox::testing

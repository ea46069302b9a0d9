// A process killed between any two changes to the directory leaves the old or the new entry.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "session/durable_io.h"
#include "session/survey.h"
#include "tests/support/session_rig.h"

namespace ox::testing {
namespace {

constexpr int kDied = 42;
constexpr int kFailed = 43;
int changesLeft = 0;

void DieInTime() {
  if (changesLeft-- == 0) _exit(kDied);
}

// Runs the step in a child that dies before its change number `changes`. True when it lived.
bool SurvivesChanges(int changes, const std::function<bool()>& step) {
  const pid_t child = fork();
  if (child == 0) {
    changesLeft = changes;
    internal::SetFileOperationHook(&DieInTime);
    const bool isDone = step();
    _exit(isDone ? 0 : kFailed);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != kFailed);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

struct Case {
  const char* name;
  Durability durability;
  bool isReplacement;
  Limits limits;
};

class CrashTest : public ::testing::TestWithParam<Case> {
 protected:
  // "a" is what was used longest ago and "b" and "c" fill the cache.
  void Fill(const SessionOptions& options) {
    const auto session = OpenSession(options);
    if (GetParam().isReplacement) {
      ASSERT_FALSE(Store(*session, "a", old_, "old metadata"));
    }
    ASSERT_FALSE(Store(*session, "b", other_, "b"));
    ASSERT_FALSE(Store(*session, "c", other_, "c"));
  }

  // True when it is the new entry.
  bool CheckWhatIsLeft(const ScratchDirectory& directory, const SessionOptions& options) {
    const auto session = OpenSession(options);
    const std::string found = Fetch(*session, "a");
    const bool isNew = found == new_ + "|new metadata";
    const std::string before = GetParam().isReplacement ? old_ + "|old metadata" : kNotThere;
    EXPECT_TRUE(isNew || found == before) << found;
    const std::string b = Fetch(*session, "b");
    EXPECT_TRUE(b == kNotThere || b == other_ + "|b") << b;
    EXPECT_EQ(Fetch(*session, "c"), other_ + "|c");
    internal::Survey survey;
    EXPECT_FALSE(internal::SurveyDirectory(directory.Path(), &survey));
    EXPECT_TRUE(survey.staging.empty());
    EXPECT_EQ(survey.bytes, DiskUse(directory.Path()));
    EXPECT_EQ(session->Statistics().bytes, survey.bytes);
    EXPECT_LE(survey.bytes, GetParam().limits.size);
    return isNew;
  }

  const std::string old_ = Bytes(1, 3000);
  const std::string new_ = Bytes(2, 3500);
  const std::string other_ = Bytes(3, 3000);
};

TEST_P(CrashTest, BetweenAnyTwoChanges) {
  bool wasNew = false;
  int changes = 0;
  for (bool isDone = false; !isDone; ++changes) {
    SCOPED_TRACE(changes);
    const CacheDirectory directory(GetParam().limits);
    auto options = OptionsFor(directory.Path());
    options.durability = GetParam().durability;
    Fill(options);
    const auto storeNew = [&] { return !Store(*OpenSession(options), "a", new_, "new metadata"); };
    isDone = SurvivesChanges(changes, storeNew);
    // What comes after is killed as well, at any change while it puts the directory in order.
    const auto reopen = [&] { return OpenSession(options) != nullptr; };
    for (int again = 0; again < 20; ++again)
      SurvivesChanges(again, reopen);
    const bool isNew = CheckWhatIsLeft(directory, options);
    EXPECT_TRUE(isNew || !wasNew);
    wasNew = isNew;
    ASSERT_LT(changes, 100);
  }
  EXPECT_TRUE(wasNew);
  EXPECT_GT(changes, 8);
}

constexpr Limits kWide{100000, 10, 8192};
INSTANTIATE_TEST_SUITE_P(
    All, CrashTest,
    ::testing::Values(Case{"replace", Durability::kProcess, true, kWide},
                      Case{"replaceSynchronised", Durability::kPower, true, kWide},
                      Case{"add", Durability::kProcess, false, kWide},
                      Case{"replaceWhenFull", Durability::kProcess, true, {9200, 3, 8192}},
                      Case{"addWhenFull", Durability::kPower, false, {9200, 2, 8192}}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace ox::testing

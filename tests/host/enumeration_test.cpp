// Enumerations of directories, and what they save the start-up scan.
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/host/host_fixture.h"

namespace ox::testing {
namespace {

using Visit = std::function<bool(File& entry, bool isDirectory)>;

class EnumerationTest : public HostTest {
 protected:
  bool Enumerate(const std::string& path, const Visit& visit) {
    const auto call = [](File& entry, bool isDirectory, void* context) {
      return (*static_cast<const Visit*>(context))(entry, isDirectory);
    };
    void* const context = const_cast<Visit*>(&visit);
    return BoundFile(fileSystem_, path)->EnumerateDirectory(call, context, 0) != 0;
  }
  static std::string PathOf(File& entry) {
    OxString path;
    entry.GetPath(path);
    return path.UTF8();
  }
};

TEST_F(EnumerationTest, OldestFirstByteForByteAsItWasAtTheStart) {
  for (const char* name : {"a", "b", "c", "d", "e", "\xC3\xA4"}) {
    WriteWhole(scratch_ / name, "x");
    SetModified(scratch_ / name, 1000);
  }
  fs::create_directory(scratch_ / "sub");
  WriteWhole(scratch_ / "sub/inner", "x");
  SetModified(scratch_ / "sub", 2000);
  SetModified(scratch_ / "d", 500);
  SetModified(scratch_ / "b", 3000);
  ASSERT_EQ(0, symlink("nowhere", (scratch_ / "link").c_str()));
  ASSERT_EQ(0, symlink("sub", (scratch_ / "link to sub").c_str()));

  const std::string prefix = scratch_.Path() + "//";  // nothing is normalised
  std::vector<std::string> seen;
  const auto deleteEach = [&](File& entry, bool isDirectory) {
    seen.push_back(PathOf(entry).substr(prefix.size()) + (isDirectory ? "/" : ""));
    EXPECT_EQ(prefix, PathOf(entry).substr(0, prefix.size()));
    EXPECT_EQ(isDirectory || seen.back()[0] == 'l' ? 0U : 1U, entry.GetSize());
    BoundFile(fileSystem_, prefix + "c")->Delete(0);  // comes later, and is shown nevertheless
    entry.Delete(0);
    return seen.size() < 5;
  };
  ASSERT_TRUE(Enumerate(scratch_.Path() + "/", deleteEach));
  EXPECT_EQ((std::vector<std::string>{"d", "a", "c", "e", "\xC3\xA4"}), seen);
  seen.clear();
  ASSERT_TRUE(Enumerate(scratch_.Path() + "/", deleteEach));
  EXPECT_EQ((std::vector<std::string>{"sub/", "b", "link", "link to sub"}), seen);

  EXPECT_FALSE(Enumerate(scratch_ / "missing", deleteEach));
}

TEST_F(EnumerationTest, AFailureIsToldAndNothingIsThrown) {
  WriteWhole(scratch_ / "a", "x");
  WriteWhole(scratch_ / "b", "x");
  int seen = 0;
  const Visit count = [&](File&, bool) { return ++seen > 0; };
  for (FaultDriver* faults : {&callFaults, &allocationFaults}) {
    bool isReached = true;
    for (std::uint64_t k = 1; isReached; ++k) {
      seen = 0;
      faults->Arm(k, FaultDriver::Mode::kOnce);
      const bool isRead = Enumerate(scratch_.Path(), count);
      isReached = faults->WasReached();
      faults->Disarm();
      EXPECT_EQ(isRead, !isReached) << k;
      EXPECT_EQ(isRead, seen > 0) << k;
    }
    EXPECT_EQ(2, seen);
  }
}

// What the start-up scan asks costs no system call until something is changed, also after an
// enumeration inside another one.
TEST_F(EnumerationTest, AnswersUntilSomethingChanges) {
  fs::create_directory(scratch_ / "sub");
  WriteWhole(scratch_ / "a", "x");
  WriteWhole(scratch_ / "sub/b", "x");
  fs::create_symlink("a", scratch_ / "link");
  BoundFile file(fileSystem_, scratch_ / "a");
  BoundFile inner(fileSystem_, scratch_ / "sub/b");
  const auto isAnswered = [](const BoundFile& asked) {
    callFaults.Arm(0, FaultDriver::Mode::kOnce);
    EXPECT_TRUE(asked->Exists());
    EXPECT_EQ(1U, asked->GetSize());
    EXPECT_EQ(1U, asked->GetSize());
    return callFaults.Calls() == 0;
  };
  for (const bool deletes : {false, true}) {
    EXPECT_TRUE(Enumerate(scratch_.Path(), [&](File&, bool) {
      EXPECT_TRUE(isAnswered(file));
      EXPECT_FALSE(isAnswered(inner));
      EXPECT_FALSE(BoundFile(fileSystem_, scratch_ / "link")->Exists());
      EXPECT_TRUE(Enumerate(scratch_ / "sub", [&](File&, bool) {
        EXPECT_TRUE(isAnswered(inner));
        EXPECT_TRUE(!deletes || inner->Delete(0));
        return true;
      }));
      EXPECT_NE(deletes, isAnswered(file));
      return false;
    }));
  }
  EXPECT_TRUE(Enumerate(scratch_.Path(), [&](File& entry, bool isDirectory) {
    if (isDirectory) return true;
    EXPECT_EQ(1U, entry.GetSize());
    EXPECT_TRUE(file->Open(File::kOpenWrite));
    file->Close();
    EXPECT_EQ(0U, file->GetSize());
    return false;
  }));
}

}  // namespace
}  // namespace ox::testing

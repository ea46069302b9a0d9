// Admission, lookup, removal, and the accounting behind them.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

const std::string kSizeCalls = std::string("Lock E\nCreateFile\nSetPath ") + kAbcPath +
                               "\nGetSize " + kAbcPath +
                               "\nDestroyFile\nUnlock E\nLock E\nUnlock E\n";

TEST(Entries, CallsInOrder) {
  StartedRig rig;
  rig.host.TakeLog();
  auto* entry = rig.Create("abc", 7, "meta");
  // Measured on disk although the entry has declared its size: it is not pending yet.
  EXPECT_EQ("Lock M\n" + kSizeCalls + "Unlock M\n", rig.host.TakeLog());

  EXPECT_EQ(7U, entry->GetSize());
  EXPECT_EQ("Lock E\nUnlock E\n", rig.host.TakeLog());
  EXPECT_EQ("meta", Utf8(entry->GetMetaData()));
  EXPECT_EQ("Lock E\nUnlock E\n", rig.host.TakeLog());
  EXPECT_EQ("abc", Utf8(entry->GetURL()));
  EXPECT_EQ(kAbcPath, Utf8(entry->GetFile()));
  EXPECT_EQ(nullptr, rig.Create("abc", 7, "meta"));
  EXPECT_EQ(nullptr, rig.Get("other"));
  EXPECT_EQ("Lock M\nUnlock M\nLock M\nUnlock M\n", rig.host.TakeLog());

  rig.host.WriteFile(kAbcPath, "content");
  ASSERT_TRUE(rig.manager->Add(entry));
  rig.host.TakeLog();
  ASSERT_TRUE(rig.manager->Remove(entry));
  EXPECT_EQ(std::string("Lock M\nCreateFile\nSetPath ") + kAbcPath + "\nDelete " + kAbcPath +
                "\nSetPath " + kAbcPath + ".ox_meta\nDelete " + kAbcPath +
                ".ox_meta\nDestroyFile\n" + kSizeCalls + "Unlock M\n",
            rig.host.TakeLog());
  EXPECT_EQ(1U, rig.host.files.size());
}

TEST(Entries, TheUrlKeepsItsUtf8Form) {
  StartedRig rig;
  const OxString url("http://example/\xC3\xA4");
  rig.manager->Get(url);
  const char* utf8 = nullptr;  // the field behind the table of virtual operations
  std::memcpy(&utf8, reinterpret_cast<const char*>(&url) + sizeof(void*), sizeof utf8);
  ASSERT_NE(nullptr, utf8);
  EXPECT_STREQ("http://example/\xC3\xA4", utf8);
}

TEST(Entries, FilesAreNamedByTheDigestLowNibbleFirst) {
  StartedRig rig;
  const struct {
    const char* url;
    const char* name;
  } cases[] = {
      {"", "4DD1C89DF8002B409E089089CE8F24E7"},
      {"abc", "09100589C32DF40B6D69F3D7821EF727"},
      {"ABC", "09F2DB2D1BFDC0F4074B5A2D53529E23"},
      {"http://example/\xC3\xA4", "E7A5D583C5EEBED534A06AE69AAFB897"},
      {"http://example/\xED\xA0\x80", "EAFB49DAE318C32C8C8BAC643A525E68"},  // hashed as U+FFFD
  };
  for (const auto& c : cases) {
    auto* entry = rig.Create(c.url, 1, "m");
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(std::string("/c/") + c.name, Utf8(entry->GetFile())) << c.url;
    EXPECT_EQ(c.url[0] == '\0', entry->GetURL().IsEmpty());
  }
}

TEST(Entries, NullAndStrangePointers) {
  StartedRig rig;
  rig.host.TakeLog();
  EXPECT_FALSE(rig.manager->Add(nullptr));
  EXPECT_FALSE(rig.manager->Remove(nullptr));
  rig.manager->DestroyCacheValue(nullptr);
  EXPECT_EQ("Lock M\nUnlock M\nLock M\nUnlock M\nLock M\nUnlock M\n", rig.host.TakeLog());
  int other = 0;
  EXPECT_FALSE(rig.manager->Remove(reinterpret_cast<core::cache::CacheValue*>(&other)));
}

TEST(Entries, DeclaredSizeIsComparedWithTheEntryLimitAndNothingElse) {
  StartedRig rig("MAX_CACHE_ENTRIES=9\nMAX_CACHE_ENTRY_SIZE=2000\nMAX_CACHE_SIZE=1500\n");
  EXPECT_EQ(nullptr, rig.Create("a", 2001, "m"));
  EXPECT_NE(nullptr, rig.Create("b", 2000, "m"));
  if (sizeof(unsigned long) > 4) {
    EXPECT_EQ(nullptr, rig.Create("c", (1UL << 31 << 1) + 5, "m"));
  }
  // At admission the content is what lies on disk, plus the metadata.
  EXPECT_EQ(nullptr, rig.Create("d", 0, std::string(2001, 'm')));
  rig.host.WriteFile(kAbcPath, std::string(1990, 'x'));
  EXPECT_EQ(nullptr, rig.Create("abc", 0, std::string(11, 'm')));
}

TEST(Accounting, AFileAbove4GiBKeepsItsLow32Bits) {
  StartedRig rig;
  auto* entry = rig.Store("abc", "content", "meta");
  rig.host.highBits = std::uint64_t{3} << 32;
  EXPECT_EQ(7U, entry->GetSize());
}

TEST(Accounting, DestroyingACommittedEntryThatIsNotListedTouchesNoFile) {
  StartedRig rig("MAX_CACHE_ENTRIES=1\n");
  // A host whose comparison finds nothing equal can list one value twice; it must end only once.
  rig.host.comparesNothingEqual = true;
  rig.manager->SetMaxEntries(5);
  auto* entry = rig.Store("abc", "content", "meta");
  EXPECT_TRUE(rig.manager->Add(entry));
  rig.Stop();
  EXPECT_EQ(0U, rig.host.LiveBlocks());
  EXPECT_NE(nullptr, rig.host.FindFile(kAbcPath));
}

TEST(Removal, StopsAtTheFirstFailure) {
  const struct {
    std::uint64_t failing;
    const char* calls;
  } cases[] = {
      {1, "CreateFile\nDestroyFile null\n"},
      {2, "CreateFile\nSetPath P\nDestroyFile\n"},
      {3, "CreateFile\nSetPath P\nDelete P\nDestroyFile\n"},
      {4, "CreateFile\nSetPath P\nDelete P\nSetPath P.ox_meta\nDelete P.ox_meta\nDestroyFile\n"}};
  for (const auto& c : cases) {
    StartedRig rig;
    auto* entry = rig.Store("abc", "content", "meta");
    rig.host.TakeLog();
    rig.host.fileFaults.Arm(c.failing, FaultDriver::Mode::kOnce);
    EXPECT_TRUE(rig.manager->Remove(entry));
    std::string log = rig.host.TakeLog();
    for (auto at = log.find(kAbcPath); at != std::string::npos; at = log.find(kAbcPath)) {
      log.replace(at, sizeof "/c/09100589C32DF40B6D69F3D7821EF727" - 1, "P");
    }
    EXPECT_EQ(0U, log.find(std::string("Lock M\n") + c.calls + "Lock E\n")) << log;
  }
}

}  // namespace
}  // namespace ox::testing

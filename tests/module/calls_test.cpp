// The calls on mutexes and files that each operation makes, in order, and where it stops when one
// of them fails. P stands for the content file of the URL "abc".
#include <gtest/gtest.h>

#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

using core::cache::CacheValue;

const std::string kMeta = std::string(kAbcPath) + ".ox_meta";

// The name of the empty URL.
#define OTHER "/c/4DD1C89DF8002B409E089089CE8F24E7"

std::string TakeCalls(CacheRig& rig) {
  std::string calls = rig.host.TakeLog();
  for (std::size_t at = 0; (at = calls.find(kAbcPath)) != std::string::npos;)
    calls.replace(at, std::string(kAbcPath).size(), "P");
  for (char& c : calls)
    c = c == '\n' ? ' ' : c;
  return calls;
}

using Operation = bool (*)(CacheRig&, CacheValue* entry);

constexpr Operation kCreate = [](auto& rig, auto) {
  return rig.Create("abc", 7, "meta") != nullptr;
};
constexpr Operation kCreateOther = [](auto& rig, auto) {
  return rig.Create("", 7, "m") != nullptr;
};
constexpr Operation kAdd = [](auto& rig, auto entry) { return rig.manager->Add(entry); };
constexpr Operation kGet = [](auto& rig, auto) { return rig.Has("abc"); };
constexpr Operation kRemove = [](auto& rig, auto entry) { return rig.manager->Remove(entry); };
constexpr Operation kAskSize = [](auto&, auto entry) {
  const auto size = entry->GetSize();
  EXPECT_TRUE(size == 0 || size == 7) << size;
  return size == 7;
};
constexpr Operation kAskTexts = [](auto&, auto entry) {
  return Utf8(entry->GetMetaData()) == "meta" && Utf8(entry->GetURL()) == "abc" &&
         Utf8(entry->GetFile()) == kAbcPath;
};
constexpr Operation kDestroy = [](auto& rig, auto entry) {
  rig.manager->DestroyCacheValue(entry);
  return true;
};
constexpr Operation kSetLimits = [](auto& rig, auto) {
  rig.manager->SetMaxSize(rig.manager->GetMaxSize());
  rig.manager->SetMaxEntries(rig.manager->GetMaxEntries());
  rig.manager->SetMaxCacheValueSize(rig.manager->GetMaxCacheValueSize());
  return true;
};
constexpr Operation kMoveDataDir = [](auto& rig, auto) {
  rig.manager->SetDataDir("/elsewhere/");
  return Utf8(rig.manager->GetDataDir()) == "/elsewhere/";
};

#define META "CreateFile SetPath P.ox_meta "
#define SIZE_OF(path) "E+ CreateFile SetPath " path " GetSize " path " DestroyFile E- E+ E- "
#define DELETE_P "CreateFile SetPath P Delete P SetPath P.ox_meta Delete P.ox_meta DestroyFile "

enum State { kAbsent, kPending, kStored };

TEST(Calls, OfEveryOperation) {
  const struct {
    State before;
    Operation operation;
    std::uint64_t failing;  // which call on files, 0 for none
    bool result;
    const char* calls;
  } cases[] = {
      // Measured on disk although the entry has declared its size: it is not pending yet.
      {kAbsent, kCreate, 0, true, "M+ " SIZE_OF("P") "M- "},
      {kPending, kCreate, 0, false, "M+ M- "},
      // Measured first; the eviction happens inside the same lock and locks again.
      {kStored, kCreateOther, 0, true, "M+ " SIZE_OF(OTHER) "M+ " DELETE_P SIZE_OF("P") "M- M- "},
      {kAbsent, kAdd, 0, false, "M+ M- "},
      {kPending, kAdd, 0, true, "M+ " META "Open 53 Write 4 Close DestroyFile M- "},
      {kPending, kAdd, 1, false, "M+ CreateFile DestroyFile null M- "},
      {kPending, kAdd, 3, false, "M+ " META "Open 53 DestroyFile M- "},
      {kPending, kAdd, 4, false, "M+ " META "Open 53 Write 4 Close DestroyFile M- "},
      {kAbsent, kGet, 0, false, "M+ M- "},
      {kPending, kGet, 0, false, "M+ M- "},
      {kStored, kGet, 0, true, "M+ E+ " META "Exists Open 2 Read 1024 DestroyFile E- M- "},
      {kStored, kGet, 1, true, "M+ E+ CreateFile DestroyFile null E- M- "},
      {kStored, kGet, 3, true, "M+ E+ " META "Exists DestroyFile E- M- "},
      {kStored, kGet, 4, true, "M+ E+ " META "Exists Open 2 DestroyFile E- M- "},
      {kStored, kGet, 5, true, "M+ E+ " META "Exists Open 2 Read 1024 DestroyFile E- M- "},
      {kAbsent, kRemove, 0, false, "M+ M- "},
      // The size is asked when the files are gone.
      {kStored, kRemove, 0, true, "M+ " DELETE_P SIZE_OF("P") "M- "},
      {kStored, kRemove, 1, true, "M+ CreateFile DestroyFile null " SIZE_OF("P") "M- "},
      {kStored, kRemove, 2, true, "M+ CreateFile SetPath P DestroyFile " SIZE_OF("P") "M- "},
      {kStored, kRemove, 3, true,
       "M+ CreateFile SetPath P Delete P DestroyFile " SIZE_OF("P") "M- "},
      // A path that was refused is not bound, and nothing is deleted.
      {kStored, kRemove, 4, true,
       "M+ CreateFile SetPath P Delete P SetPath P.ox_meta Delete  DestroyFile " SIZE_OF(
           "P") "M- "},
      {kAbsent, kDestroy, 0, true, "M+ M- "},
      {kPending, kSetLimits, 0, true, "M+ M- M+ M- M+ E+ E- M- "},
      {kAbsent, kMoveDataDir, 0, true, ""},
      {kPending, kAskSize, 0, true, "E+ E- "},
      {kStored, kAskSize, 0, true, "E+ CreateFile SetPath P GetSize P DestroyFile E- "},
      {kStored, kAskSize, 1, false, "E+ CreateFile DestroyFile null E- "},
      {kPending, kAskTexts, 0, true, "E+ E- "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.calls);
    StartedRig rig("MAX_CACHE_ENTRIES=1\n");
    auto* entry = c.before == kAbsent ? nullptr : rig.Create("abc", 7, "meta");
    if (c.before == kStored) {
      rig.host.WriteFile(kAbcPath, "content");
      rig.manager->Add(entry);
    }
    rig.host.TakeLog();
    rig.host.fileFaults.Arm(c.failing, FaultDriver::Mode::kOnce);
    EXPECT_EQ(c.result, c.operation(rig, entry));
    EXPECT_EQ(c.calls, TakeCalls(rig));
    rig.host.fileFaults.Disarm();
    if (c.operation == kGet && c.before == kStored) {
      EXPECT_EQ(c.failing == 0 ? "meta" : "", Utf8(entry->GetMetaData()));
    }
    if (c.operation == kAdd && c.before == kPending) {
      EXPECT_EQ(c.result, rig.Has("abc"));
      EXPECT_EQ(!c.result, rig.manager->Add(entry));
    }
    if (c.operation == kRemove && c.result) {
      EXPECT_EQ(c.failing == 0 ? 1U : c.failing == 4 ? 2U : 3U, rig.host.files.size());
    }
  }
}

TEST(Calls, OfAStart) {
  const StoredFile configuration = {"/c/file-cache.conf", "MAX_CACHE_ENTRIES=9"};
  const StoredFile metadata = {kMeta, "meta"};
  const std::string open = "CreateFile SetPath /c/file-cache.conf Exists ";
  const std::string scan = "CreateFile SetPath /c EnumerateDirectory /c ";
  const std::string read = open + "Open 2 Read 1024 DestroyFile " + scan + "GetPath ";
  const std::string look = read + "GetPath CreateFile SetPath P Exists ";
  const struct {
    std::vector<StoredFile> files;
    std::string calls;
  } cases[] = {
      {{}, open + "DestroyFile " + scan},
      {{configuration}, read},
      {{configuration, metadata}, look + "Delete P.ox_meta DestroyFile "},
      {{configuration, metadata, {kAbcPath, ""}},
       look + "GetSize P GetSize P.ox_meta Delete P Delete P.ox_meta DestroyFile GetPath "},
      {{configuration, metadata, {kAbcPath, "content"}},
       look + "GetSize P GetSize P.ox_meta " SIZE_OF("P") "DestroyFile GetPath "},
  };
  const std::string begin =
      "CreateMutex F F+ GetInterface IFileSystem CreateMutex E GetDefaultDirectory CreateMutex M ";
  for (const auto& c : cases) {
    CacheRig rig("");
    rig.host.files = c.files;
    ASSERT_TRUE(rig.Start());
    EXPECT_EQ(begin + c.calls + "DestroyFile F- ", TakeCalls(rig));
    rig.Stop();
    EXPECT_EQ("F+ DestroyMutex M ReleaseInterface DestroyMutex E F- DestroyMutex F ",
              TakeCalls(rig));
  }
  CacheRig rig("MAX_CACHE_ENTRIES=9");
  rig.host.hasDefaultDirectory = false;  // then the directory counts, but no configuration
  ASSERT_TRUE(rig.Start());
  EXPECT_EQ(begin + scan + "GetPath DestroyFile F- ", TakeCalls(rig));
}

}  // namespace
}  // namespace ox::testing

// A session in surroundings that mean it no good: a clear error or success, nothing lost, nothing
// outside the directory touched, nothing that hangs.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "session/metadata_file.h"
#include "tests/support/ledger.h"

namespace ox::testing {
namespace {

namespace fs = std::filesystem;

constexpr char kUrl[] = "http://host/planted";
constexpr char kOther[] = "http://host/other";
constexpr uid_t kNobody = 65534;

class Hostile : public ::testing::Test {
 protected:
  Hostile() {
    alarm(120);  // whatever hangs fails
    fs::create_directory(Directory());
    WriteWhole(Directory() + "/file-cache.conf", "MAX_CACHE_ENTRIES=50\n");
    WriteWhole(Outside(), "precious");
  }
  ~Hostile() override {
    EXPECT_EQ("precious", ReadWhole(Outside()));
    alarm(0);
  }

  std::string Directory() const { return scratch_ / "cache"; }
  std::string Outside() const { return scratch_ / "outside"; }

  std::unique_ptr<CacheSession> Open() {
    auto session = CacheSession::Open(options_, &error_);
    EXPECT_EQ(session == nullptr, static_cast<bool>(error_));
    return session;
  }

  // Path of the content file of kUrl; both entries stay in the cache.
  std::string Prepare() {
    const auto session = Open();
    EXPECT_TRUE(Store(*session, kOther, 1, &ledger_));
    EXPECT_TRUE(Store(*session, kUrl, 1, &ledger_));
    return session->Fetch(kUrl, &error_)->path;
  }

  // Works as if nothing were wrong with kUrl.
  void UseAll(CacheSession& session) {
    EXPECT_EQ(1, FetchVersion(session, kOther, &error_)) << error_.Message();
    EXPECT_NE(1, FetchVersion(session, kUrl, &error_));
    EXPECT_NE(EPERM, error_.systemError) << "nothing is forbidden: " << error_.Message();
    const bool isStored = Store(session, kUrl, 2, &ledger_);
    const int found = FetchVersion(session, kUrl, &error_);
    EXPECT_TRUE(isStored ? found == 2 : found != 2) << found << error_.Message();
    session.Remove(kUrl);
    EXPECT_FALSE(session.Trim(nullptr));
    EXPECT_EQ(1, FetchVersion(session, kOther, &error_)) << error_.Message();
  }

  ScratchDirectory scratch_;
  SessionOptions options_ = OptionsFor(Directory());
  Ledger ledger_;
  Error error_;
};

struct Plant {
  const char* what;
  mode_t type;
  std::string target;  // of a link
};

bool Put(const Plant& plant, const std::string& path) {
  if (plant.type == S_IFLNK) return symlink(plant.target.c_str(), path.c_str()) == 0;
  if (plant.type == S_IFREG) return link(plant.target.c_str(), path.c_str()) == 0;
  if (plant.type == S_IFDIR) return mkdir(path.c_str(), 0700) == 0;
  return mknod(path.c_str(), plant.type | 0600, makedev(1, 5)) == 0;  // /dev/zero never ends
}

std::vector<Plant> Plants(const std::string& file, const std::string& itself) {
  return {{"link to a file", S_IFLNK, file},
          {"link to nothing", S_IFLNK, "/nowhere/at/all"},
          {"link to itself", S_IFLNK, itself},
          {"another name of a file", S_IFREG, file},
          {"directory", S_IFDIR, ""},
          {"FIFO", S_IFIFO, ""},
          {"device", S_IFCHR, ""}};
}

// Before the session starts, and under its feet.
TEST_F(Hostile, FilesPlantedUnderTheNamesOfAnEntry) {
  int planted = 0;
  const std::string path = Prepare();
  for (const Plant& plant : Plants(Outside(), path)) {
    for (const char* suffix : {"", ".ox_meta"}) {
      for (const bool isOpen : {false, true}) {
        SCOPED_TRACE(std::string(plant.what) + " as NAME" + suffix);
        Prepare();
        auto session = isOpen ? Open() : nullptr;
        fs::remove_all(path + suffix);
        if (!Put(plant, path + suffix)) continue;  // devices need privileges
        ++planted;
        if (!isOpen) session = Open();
        if (session != nullptr) UseAll(*session);
        EXPECT_TRUE(plant.type != S_IFDIR || fs::is_directory(path + suffix));
        session.reset();
        fs::remove_all(path + suffix);
      }
    }
  }
  std::printf("%d planted\n", planted);
}

// The session works without these files and writes to nothing that stands in their place.
TEST_F(Hostile, FilesPlantedUnderTheNamesOfTheLockAndOfTheOrderOfUse) {
  Prepare();
  for (const std::string name : {"/ox-session.lock", "/ox-session.order"}) {
    const std::string path = Directory() + name;
    for (const Plant& plant : Plants(Outside(), path)) {
      SCOPED_TRACE(plant.what + (" as " + name));
      fs::remove(path);
      if (!Put(plant, path)) continue;
      const auto session = Open();
      ASSERT_NE(nullptr, session) << error_.Message();
      EXPECT_EQ("", ledger_.Check(*session));
    }
  }
}

// A start cuts what was kept of a writer to its length.
TEST_F(Hostile, FilesPlantedUnderTheNameOfKeptContent) {
  const std::string path = Prepare();
  const std::string staged = Directory() + "/ox-0123456789abcdef-1.part";
  const std::string commit = path + ".0123456789abcdef-1.commit";
  const auto seal = internal::MakeSeal(kUrl, 0, 3, "m");
  for (const Plant& plant : Plants(Outside(), staged)) {
    SCOPED_TRACE(plant.what);
    if (!Put(plant, staged)) continue;
    ASSERT_FALSE(
        internal::StageMetadataFile(commit, commit, "m", 0, &seal, internal::FileSync::kNone));
    const auto session = Open();
    ASSERT_NE(nullptr, session) << error_.Message();
    EXPECT_EQ("precious", ReadWhole(Outside()));
    EXPECT_EQ("", ledger_.Check(*session));
    fs::remove(commit);
    fs::remove(staged);
  }
}

TEST_F(Hostile, ConfigurationsThatAdmitNoEntryOrCannotBeRead) {
  Prepare();
  const std::string configuration = Directory() + "/file-cache.conf";
  const std::function<void()> replacements[] = {
      [&] { fs::create_directory(configuration); },
      [&] { EXPECT_EQ(0, mkfifo(configuration.c_str(), 0600)); },
      [&] { EXPECT_EQ(0, mknod(configuration.c_str(), S_IFSOCK | 0600, 0)); },
      [&] { WriteWhole(configuration, std::string(5000, '\0')); },
      [&] { WriteWhole(configuration, std::string(100000, '\xFF')); },
      [&] { WriteWhole(configuration, "MAX_CACHE_SIZE=65536\n"); },
      [&] { WriteWhole(configuration, "MAX_CACHE_ENTRIES=0\n"); },
      [&] { EXPECT_EQ(0, symlink("/nowhere", configuration.c_str())); },
      [&] { EXPECT_EQ(0, link(Outside().c_str(), configuration.c_str())); },
      [] {},  // missing
  };
  for (const auto& replace : replacements) {
    fs::remove_all(configuration);
    replace();
    EXPECT_EQ(nullptr, Open());
    EXPECT_EQ(ErrorKind::kConfiguration, error_.kind) << error_.Message();
  }
  fs::remove_all(configuration);
  WriteWhole(configuration, "MAX_CACHE_ENTRIES=50\n");
  fs::resize_file(configuration, 10ULL << 30);  // a hole
  const auto session = Open();
  ASSERT_NE(nullptr, session) << error_.Message();
  EXPECT_EQ("", ledger_.Check(*session));
}

TEST_F(Hostile, DirectoriesThatCannotBeUsed) {
  const std::string file = Outside();
  const std::string deep = "/" + std::string(200, 'p');
  for (const std::string& directory :
       {file, file + "/below", std::string("/proc/nothing/here"), std::string("/dev/null"),
        scratch_ / std::string(300, 'n'), scratch_ / "ends in \xC3", std::string(5000, '/') + "x",
        // Longer than the scan takes.
        scratch_.Path() + deep + deep + deep + deep + deep, std::string()}) {
    options_.directory = directory;
    EXPECT_EQ(nullptr, Open()) << directory;
    EXPECT_NE("", error_.Message());
  }
  options_.directory = scratch_ / "made/when/missing";
  EXPECT_NE(nullptr, Open()) << error_.Message();
}

// Judged by another user: nothing is forbidden to root.
TEST_F(Hostile, DirectoriesThatAreReadOnlyOrNotOurs) {
  const std::string path = Prepare();
  const std::string before = ReadWhole(path);
  for (const mode_t mode : {0555U, 0000U}) {
    ASSERT_EQ(0, chmod(scratch_.Path().c_str(), 0755));
    ASSERT_EQ(0, chmod(Directory().c_str(), mode));
    const uid_t own = geteuid();
    ASSERT_TRUE(own != 0 || seteuid(kNobody) == 0);
    EXPECT_EQ(nullptr, Open());
    EXPECT_EQ(EACCES, error_.systemError) << error_.Message();
    ASSERT_EQ(0, seteuid(own));
    ASSERT_EQ(0, chmod(Directory().c_str(), 0700));
    EXPECT_EQ(before, ReadWhole(path));
  }
}

}  // namespace
}  // namespace ox::testing

// A session in surroundings that mean it no good: a clear error or success, nothing lost, nothing
// outside the directory touched, nothing that hangs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

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
    options_.directory = Directory();
    options_.modulePath = OX_MODULE_PATH;
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
    EXPECT_GE(0, FetchVersion(session, kUrl, &error_));
    const bool isStored = Store(session, kUrl, 2, &ledger_);
    const int found = FetchVersion(session, kUrl, &error_);
    EXPECT_TRUE(isStored ? found == 2 : found != 2) << found << error_.Message();
    session.Remove(kUrl);
    EXPECT_FALSE(session.Trim(nullptr));
    EXPECT_EQ(1, FetchVersion(session, kOther, &error_)) << error_.Message();
  }

  // Runs in another process, which tells by its exit whether all went well.
  static void InChild(const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
      work();
      std::fflush(stdout);
      _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }

  ScratchDirectory scratch_;
  SessionOptions options_;
  Ledger ledger_;
  Error error_;
};

struct Plant {
  const char* what;
  std::function<bool(const std::string& path, const std::string& outside)> put;
};

const Plant kPlants[] = {
    {"link to a file",
     [](const auto& path, const auto& outside) {
       return symlink(outside.c_str(), path.c_str()) == 0;
     }},
    {"link to nothing",
     [](const auto& path, const auto&) { return symlink("/nowhere/at/all", path.c_str()) == 0; }},
    {"link to itself",
     [](const auto& path, const auto&) { return symlink(path.c_str(), path.c_str()) == 0; }},
    {"directory",
     [](const auto& path, const auto&) {
       if (mkdir(path.c_str(), 0700) != 0) return false;
       WriteWhole(path + "/inside", "precious");
       return true;
     }},
    {"FIFO", [](const auto& path, const auto&) { return mkfifo(path.c_str(), 0600) == 0; }},
    {"device",
     [](const auto& path, const auto&) {
       return mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 5)) == 0;  // /dev/zero never ends
     }},
};

// Before the session starts, and under its feet.
TEST_F(Hostile, FilesPlantedUnderTheNamesOfAnEntry) {
  int planted = 0;
  for (const Plant& plant : kPlants) {
    for (const char* suffix : {"", ".ox_meta"}) {
      for (const bool isOpen : {false, true}) {
        SCOPED_TRACE(std::string(plant.what) + " as NAME" + suffix);
        const std::string path = Prepare() + suffix;
        auto session = isOpen ? Open() : nullptr;
        fs::remove_all(path);
        if (!plant.put(path, Outside())) continue;  // devices need privileges
        ++planted;
        if (!isOpen) session = Open();
        if (session != nullptr) UseAll(*session);
        if (fs::is_directory(fs::symlink_status(path))) {
          EXPECT_EQ("precious", ReadWhole(path + "/inside"));
        }
        session.reset();
        fs::remove_all(path);
      }
    }
  }
  std::printf("%d planted\n", planted);
}

// The session works without its lock file and writes to nothing that stands in its place.
TEST_F(Hostile, LinksUnderTheNameOfTheLockFile) {
  Prepare();
  const std::string lock = Directory() + "/ox-session.lock";
  for (const auto& makeLink : {&symlink, &link}) {
    fs::remove(lock);
    ASSERT_EQ(0, makeLink(Outside().c_str(), lock.c_str()));
    const auto session = Open();
    ASSERT_NE(nullptr, session) << error_.Message();
    EXPECT_EQ("", ledger_.Check(*session));
  }
}

TEST_F(Hostile, ConfigurationsThatAreNone) {
  Prepare();
  const std::string configuration = Directory() + "/file-cache.conf";
  const std::function<void()> replacements[] = {
      [&] { fs::create_directory(configuration); },
      [&] { EXPECT_EQ(0, mkfifo(configuration.c_str(), 0600)); },
      [&] { WriteWhole(configuration, std::string(5000, '\0')); },
      [&] { WriteWhole(configuration, std::string(100000, '\xFF')); },
      [&] { EXPECT_EQ(0, symlink("/nowhere", configuration.c_str())); },
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

TEST_F(Hostile, DirectoriesThatAreNone) {
  const std::string file = scratch_ / "file";
  WriteWhole(file, "x");
  const std::string deep(600, 'd');
  for (const std::string& directory :
       {file, file + "/below", std::string("/proc/nothing/here"), std::string("/dev/null"),
        scratch_ / std::string(300, 'n'), scratch_ / "ends in \xC3", std::string(5000, '/') + "x",
        std::string()}) {
    options_.directory = directory;
    EXPECT_EQ(nullptr, Open()) << directory;
    EXPECT_NE("", error_.Message());
  }
  // Long paths that the disk takes but the scan does not.
  options_.directory = scratch_.Path();
  for (int i = 0; i < 10; ++i)
    options_.directory += "/" + std::string(120, 'p');
  fs::create_directories(options_.directory);
  WriteWhole(options_.directory + "/file-cache.conf", "MAX_CACHE_ENTRIES=5\n");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(ErrorKind::kConfiguration, error_.kind) << error_.Message();

  options_.directory = scratch_ / "made/when/missing";
  EXPECT_NE(nullptr, Open()) << error_.Message();
}

TEST_F(Hostile, DirectoriesThatAreReadOnlyOrNotOurs) {
  const std::string path = Prepare();
  const auto before = ReadWhole(path);
  const auto tryIt = [&] {
    const auto session = CacheSession::Open(options_, &error_);
    if (session == nullptr) {
      EXPECT_EQ(ErrorKind::kInputOutput, error_.kind) << error_.Message();
      EXPECT_EQ(EACCES, error_.systemError) << error_.Message();
      return;
    }
    EXPECT_FALSE(Store(*session, "http://host/new", 1, &ledger_));
    EXPECT_EQ(1, FetchVersion(*session, kUrl, &error_)) << error_.Message();
  };
  for (const mode_t mode : {0555U, 0000U}) {
    ASSERT_EQ(0, chmod(Directory().c_str(), mode));
    InChild([&] {
      if (geteuid() == 0) {
        ASSERT_EQ(0, chmod(scratch_.Path().c_str(), 0755));
        ASSERT_EQ(0, seteuid(kNobody));
      }
      tryIt();
    });
    ASSERT_EQ(0, chmod(Directory().c_str(), 0700));
    EXPECT_EQ(before, ReadWhole(path));
  }
}

bool MountSmallDisk(const std::string& directory, const char* options) {
  if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  return mount("tmpfs", directory.c_str(), "tmpfs", 0, options) == 0;
}

// The disk holds less than the cache may: errors, but what was committed stays.
TEST_F(Hostile, AFullDisk) {
  for (const char* size : {"size=64k", "size=1m,nr_inodes=16"}) {
    InChild([&] {
      if (!MountSmallDisk(Directory(), size)) {
        std::printf("no privilege to mount a small disk: not tried\n");
        return;
      }
      WriteWhole(Directory() + "/file-cache.conf", "MAX_CACHE_ENTRIES=500\n");
      auto session = Open();
      ASSERT_NE(nullptr, session) << error_.Message();
      int refused = 0;
      for (int i = 1; i <= 120; ++i) {
        const std::string url = "http://host/" + std::to_string(i % 60);
        refused += Store(*session, url, i, &ledger_) ? 0 : 1;
      }
      EXPECT_LT(0, refused);
      EXPECT_EQ("", ledger_.Check(*session));
      session = nullptr;
      session = Open();
      ASSERT_NE(nullptr, session) << error_.Message();
      EXPECT_EQ("", ledger_.Check(*session));
      // Room again, and everything works again.
      for (int i = 0; i < 60; ++i) {
        const std::string url = "http://host/" + std::to_string(i);
        if (!session->Remove(url)) ledger_.IsGone(url);
      }
      EXPECT_TRUE(Store(*session, kUrl, 3, &ledger_));
      EXPECT_EQ("", ledger_.Check(*session));
      std::printf("%d of 120 refused by a disk of %s\n", refused, size);
    });
  }
}

TEST_F(Hostile, UrlsOfAMegabyteAndEveryByte) {
  WriteWhole(Directory() + "/file-cache.conf", "MAX_CACHE_ENTRIES=500\n");
  const auto session = Open();
  std::vector<std::string> urls;
  urls.push_back("http://host/" + std::string(1 << 20, 'u'));
  urls.push_back(urls.back() + "v");
  for (int byte = 0; byte < 256; ++byte)
    urls.push_back(std::string("http://host/") + static_cast<char>(byte) + "/../../x");
  std::size_t stored = 0;
  for (const std::string& url : urls) {
    const std::string number = std::to_string(&url - urls.data());
    const auto writer = session->Store(url, &error_);
    if (writer == nullptr) {
      EXPECT_EQ(ErrorKind::kInvalidArgument, error_.kind) << number;
      continue;
    }
    EXPECT_FALSE(writer->Write(number.data(), number.size()));
    EXPECT_FALSE(writer->Commit(number));
    ++stored;
  }
  EXPECT_EQ(2U + 127U, stored);  // the bytes that are UTF-8 on their own, without NUL
  for (const std::string& url : urls) {
    const auto entry = session->Fetch(url, &error_);
    if (entry) {
      EXPECT_EQ(std::to_string(&url - urls.data()), entry->metadata);
      EXPECT_EQ(entry->metadata, ReadWhole(entry->path));
      --stored;
    }
  }
  EXPECT_EQ(0U, stored);
  for (const auto& file : fs::recursive_directory_iterator(scratch_.Path())) {
    const bool isInside = file.path().parent_path() == Directory();
    EXPECT_TRUE(isInside || file.path() == Directory() || file.path() == Outside()) << file.path();
  }
}

TEST_F(Hostile, TwoProcesses) {
  Prepare();
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  const pid_t other = fork();
  if (other == 0) {
    const auto session = Open();
    static_cast<void>(write(ready[1], session != nullptr ? "y" : "n", 1));
    for (;;)
      pause();
  }
  char answer = 0;
  ASSERT_EQ(1, read(ready[0], &answer, 1));
  EXPECT_EQ('y', answer);
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(ErrorKind::kInUse, error_.kind);
  EXPECT_NE(std::string::npos, error_.Message().find("process " + std::to_string(other) + " "))
      << error_.Message();
  kill(other, SIGKILL);
  waitpid(other, nullptr, 0);
  const auto session = Open();
  ASSERT_NE(nullptr, session) << error_.Message();
  EXPECT_EQ("", ledger_.Check(*session));
}

}  // namespace
}  // namespace ox::testing

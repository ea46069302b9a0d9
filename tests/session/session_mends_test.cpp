// What others do to a cache directory while a session is open, or have left in it: nothing that was
// reported as stored is lost, nothing outside is touched, and no session is kept from opening.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "tests/support/session_rig.h"

namespace fs = std::filesystem;

namespace {

// What the system refuses for as long as this is set.
struct {
  bool directorySync = false;
  bool fileTimes = false;
  bool randomNumbers = false;
  bool reads = false;
} refused;

int Refuse(int error) {
  errno = error;
  return -1;
}

bool IsDirectory(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

// Defined here, these stand before the C library's.
extern "C" {

int fsync(int fd) {
  return refused.directorySync && IsDirectory(fd) ? Refuse(EINVAL)
                                                  : static_cast<int>(syscall(SYS_fsync, fd));
}

int futimens(int fd, const timespec times[2]) noexcept {
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  return refused.fileTimes ? Refuse(EPERM) : utimensat(AT_FDCWD, path.c_str(), times, 0);
}

ssize_t getrandom(void* buffer, size_t count, unsigned flags) {
  return refused.randomNumbers ? Refuse(ENOSYS) : syscall(SYS_getrandom, buffer, count, flags);
}

ssize_t read(int fd, void* buffer, size_t count) {
  return refused.reads ? Refuse(EIO) : syscall(SYS_read, fd, buffer, count);
}

ssize_t pread(int fd, void* buffer, size_t count, off_t offset) {
  const iovec whole{buffer, count};
  return refused.reads ? Refuse(EIO) : preadv(fd, &whole, 1, offset);
}

}  // extern "C"

namespace ox::testing {
namespace {

const std::string kOld = "http://host/old";
const std::string kNew = "http://host/new";
const Limits kLimits{100000, 10, 20000};

class SessionMends : public ::testing::Test {
 protected:
  ~SessionMends() override { refused = {}; }

  std::unique_ptr<CacheSession> Open() {
    auto session = CacheSession::Open(options, &error);
    EXPECT_NE(nullptr, session) << error.Message();
    return session;
  }
  void StoreOld() { EXPECT_FALSE(Store(*Open(), kOld, "old", "o")); }

  // The whole life of a session; "old" is in the cache before and after.
  void LiveThrough(const std::string& what) {
    SCOPED_TRACE(what);
    auto session = Open();
    ASSERT_NE(nullptr, session);
    EXPECT_EQ("old|o", Fetch(*session, kOld));
    EXPECT_FALSE(Store(*session, kNew, "1", "1"));
    EXPECT_FALSE(Store(*session, kNew, "2", "2"));
    EXPECT_FALSE(session->Trim(nullptr));
    EXPECT_EQ("2|2", Fetch(*session, kNew));
    EXPECT_FALSE(session->Remove(kNew));
    session.reset();
    EXPECT_EQ("old|o", Fetch(*Open(), kOld));
  }

  std::vector<std::string> FilesLike(const std::string& part) const {
    std::vector<std::string> found;
    for (const auto& file : fs::directory_iterator(cache.Path())) {
      if (file.path().filename().string().find(part) != std::string::npos) {
        found.push_back(file.path());
      }
    }
    return found;
  }

  CacheDirectory cache{kLimits};
  SessionOptions options = OptionsFor(cache.Path());
  Error error;
};

TEST_F(SessionMends, ACommitWhoseContentIsGoneIsAnError) {
  for (const auto durability : {Durability::kProcess, Durability::kPower}) {
    options.durability = durability;
    StoreOld();
    auto session = Open();
    for (const std::string& url : {kOld, kNew}) {
      auto writer = session->Store(url, &error);
      ASSERT_NE(nullptr, writer) << error.Message();
      EXPECT_FALSE(writer->Write("lost", 4));
      for (const std::string& file : FilesLike(".part"))
        fs::remove(file);
      EXPECT_EQ(ErrorKind::kInputOutput, writer->Commit("l").kind);
      writer.reset();
      EXPECT_EQ(url == kOld ? "old|o" : kNotThere, Fetch(*session, url));
      EXPECT_FALSE(Store(*session, url, "again", "a"));
      EXPECT_EQ("again|a", Fetch(*session, url));
    }
    EXPECT_TRUE(FilesLike("ox-").size() == 1 && FilesLike(".commit").empty());
    EXPECT_FALSE(session->Remove(kNew));
  }
}

// As "rm -f cache/*" clears a cache.
TEST_F(SessionMends, AClearedDirectoryStaysLocked) {
  auto session = Open();
  for (const std::string& file : FilesLike(""))
    fs::remove(file);
  const int another = open(cache.Path().c_str(), O_RDONLY | O_DIRECTORY);
  EXPECT_EQ(-1, flock(another, LOCK_EX | LOCK_NB));
  EXPECT_EQ(EWOULDBLOCK, errno);
  close(another);
  EXPECT_FALSE(Store(*session, kNew, "new", "n"));
  EXPECT_EQ("new|n", Fetch(*session, kNew));
}

TEST_F(SessionMends, AConfigurationIsReadOrNotGuessedAt) {
  StoreOld();
  auto open = Open();
  refused.reads = true;
  EXPECT_FALSE(open->Fetch(kOld, &error));
  EXPECT_EQ(EIO, error.systemError) << error.Message();
  open.reset();
  EXPECT_EQ(nullptr, CacheSession::Open(options, &error));
  EXPECT_EQ(EIO, error.systemError) << error.Message();
  refused = {};
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  for (rlim_t limit = 3; limit < 30; ++limit) {
    const rlimit few{limit, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    const auto session = CacheSession::Open(options, &error);
    setrlimit(RLIMIT_NOFILE, &before);
    if (session == nullptr) {
      EXPECT_NE(ErrorKind::kConfiguration, error.kind) << error.Message();
    } else {
      EXPECT_EQ("old|o", Fetch(*session, kOld)) << limit;
    }
  }
  LiveThrough("afterwards");
}

TEST_F(SessionMends, RefusalsThatLastAreLivedWith) {
  StoreOld();
  // As a killed process leaves it; deleting it synchronises the directory first.
  WriteWhole(cache / "ox-0123456789abcdef-1.part", "half");
  refused.directorySync = true;
  LiveThrough("no synchronising of directories");
  options.durability = Durability::kPower;
  {
    const auto session = Open();
    EXPECT_EQ(EINVAL, Store(*session, kNew, "1", "1").systemError);
    EXPECT_EQ("old|o", Fetch(*session, kOld));
  }
  options.durability = Durability::kProcess;
  refused = {};
  refused.fileTimes = true;
  LiveThrough("no setting of times");
  refused = {};
  refused.randomNumbers = true;
  LiveThrough("no random numbers");
}

TEST_F(SessionMends, PlantedNamesAreNeverEntriesAndKeepNothingFromOpening) {
  StoreOld();
  const std::string id = "0123456789abcdef-1";
  const std::string name(32, 'A');
  for (const std::string& file :
       {std::string("file-cache.conf.ox_meta"), std::string("ox-session.lock.ox_meta"),
        "ox-" + id + ".part", "ox-" + id + ".part.ox_meta", name + "." + id + ".commit"}) {
    WriteWhole(cache / file, "planted");
  }
  fs::create_directory(cache / name);
  const std::string configuration = ReadWhole(cache / "file-cache.conf");
  for (int i = 0; i < 12; ++i)
    EXPECT_FALSE(Store(*Open(), kNew + std::to_string(i), "x", "x"));
  EXPECT_EQ(configuration, ReadWhole(cache / "file-cache.conf"));
  EXPECT_EQ("planted", ReadWhole(cache / ("ox-" + id + ".part")));
  EXPECT_EQ(10U, Open()->Statistics().entries);
  // Once the directory is gone the commit can be finished.
  fs::remove(cache / name);
  Open();
  EXPECT_TRUE(FilesLike(".commit").empty());
}

TEST_F(SessionMends, ARelativeDirectoryStaysTheSame) {
  StoreOld();
  const fs::path before = fs::current_path();
  fs::current_path(fs::path(cache.Path()).parent_path());
  options.directory = fs::path(cache.Path()).filename();
  const auto session = Open();
  fs::current_path("/");
  EXPECT_EQ("old|o", Fetch(*session, kOld));
  EXPECT_FALSE(Store(*session, kNew, "new", "n"));
  EXPECT_FALSE(session->Trim(nullptr));
  EXPECT_EQ("new|n", Fetch(*session, kNew));
  fs::current_path(before);
}

TEST_F(SessionMends, AForkedChildTouchesNothing) {
  auto session = Open();
  auto writer = session->Store(kNew, &error);
  EXPECT_FALSE(writer->Write("new", 3));
  int running[2];
  ASSERT_EQ(0, pipe(running));
  const pid_t child = fork();
  if (child == 0) {
    const bool isRefused =
        static_cast<bool>(writer->Commit("child")) && session->Store(kOld, &error) == nullptr;
    writer.reset();
    session.reset();
    _exit(isRefused && write(running[1], "x", 1) == 1 && pause() != 0 ? 0 : 1);
  }
  char byte = 0;
  ASSERT_EQ(1, read(running[0], &byte, 1));
  EXPECT_FALSE(writer->Commit("n"));
  EXPECT_EQ("new|n", Fetch(*session, kNew));
  // The child lives on and has no part in the lock.
  writer.reset();
  session.reset();
  EXPECT_EQ("new|n", Fetch(*Open(), kNew));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(SessionMends, AReplacedDirectoryIsNoticed) {
  StoreOld();
  const auto session = Open();
  const std::string away = cache.Path() + ".away";
  fs::rename(cache.Path(), away);
  fs::create_directory(cache.Path());
  WriteWhole(cache / "somebody's", "precious");
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  EXPECT_EQ(ErrorKind::kInputOutput, Store(*session, kNew, "1", "1").kind);
  EXPECT_EQ(ErrorKind::kInputOutput, session->Trim(nullptr).kind);
  EXPECT_EQ("precious", ReadWhole(cache / "somebody's"));
  fs::remove_all(cache.Path());
  fs::rename(away, cache.Path());
  EXPECT_EQ("old|o", Fetch(*session, kOld));
  EXPECT_FALSE(Store(*session, kNew, "new", "n"));
}

TEST_F(SessionMends, ImpossibleTimesAreTheOldest) {
  for (const std::int64_t seconds : {7258118400, 9300000000, 20000000000, -5000000000}) {
    SCOPED_TRACE(seconds);
    StoreOld();
    const auto path = [&](CacheSession& session) { return session.Fetch(kOld, &error)->path; };
    const std::string metadata = path(*Open()) + ".ox_meta";
    SetModified(metadata, seconds);
    auto session = Open();
    for (int i = 0; i < 10; ++i)
      EXPECT_FALSE(Store(*session, kNew + std::to_string(i), "x", "x"));
    EXPECT_EQ(kNotThere, Fetch(*session, kOld));
    // The order goes on: after a restart what was used first goes first.
    Fetch(*session, kNew + "0");
    session.reset();
    session = Open();
    EXPECT_FALSE(Store(*session, kOld, "old", "o"));
    EXPECT_EQ("x|x", Fetch(*session, kNew + "0"));
    EXPECT_EQ(kNotThere, Fetch(*session, kNew + "1"));
  }
}

}  // namespace
}  // namespace ox::testing

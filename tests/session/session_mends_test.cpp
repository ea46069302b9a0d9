// What others do to a cache directory while a session is open, or have left in it: nothing that was
// reported as stored is lost, nothing outside is touched, and no session is kept from opening.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <thread>

#include "session/durable_io.h"
#include "session/entry_name.h"
#include "tests/support/session_rig.h"

namespace fs = std::filesystem;

namespace ox::testing {
namespace {

const std::string kOld = "http://host/old";
const std::string kNew = "http://host/new";
const Limits kLimits{100000, 10, 20000};

class SessionMends : public ::testing::Test {
 protected:
  std::unique_ptr<CacheSession> Open() {
    auto session = CacheSession::Open(options, &error);
    EXPECT_NE(nullptr, session) << error.Message();
    return session;
  }
  void StoreOld() { EXPECT_FALSE(Store(*Open(), kOld, "old", "o")); }

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

TEST_F(SessionMends, WhoHasTheCacheIsNamedWhereThatProcessLives) {
  StoreOld();
  const std::string own = std::to_string(getpid());
  const std::string lockFile = cache / "ox-session.lock";
  EXPECT_EQ(own + "\n", ReadWhole(lockFile));
  const int another = open(cache.Path().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(0, flock(another, LOCK_EX | LOCK_NB));
  for (const std::string& text : {own + "\n", own, std::string("1\n"), std::string(), "x" + own,
                                  std::string("0\n"), std::string("2147483647\n")}) {
    WriteWhole(lockFile, text);
    EXPECT_EQ(nullptr, CacheSession::Open(options, &error));
    EXPECT_EQ(ErrorKind::kInUse, error.kind);
    const bool isNamed = text.find(own) == 0 || text == "1\n";
    const std::string who =
        isNamed ? "process " + text.substr(0, text.find('\n')) : "another process";
    EXPECT_EQ(0U, error.Message().find(who + " has the cache")) << error.Message();
  }
  close(another);
  Open();
  EXPECT_EQ(own + "\n", ReadWhole(lockFile)) << "of longer text nothing stays";
}

// Names of the session's own with a suffix of its own, as files and as directories.
TEST_F(SessionMends, PlantedNamesAreNeverEntriesAndKeepNothingFromOpening) {
  StoreOld();
  const std::string id = "0123456789abcdef-1";
  const std::string metadata = FilesLike(".ox_meta").front();
  const std::string content = metadata.substr(0, metadata.rfind('.'));
  const std::string configuration = ReadWhole(cache / "file-cache.conf");
  for (const bool isDirectory : {false, true}) {
    std::vector<std::string> planted;
    for (const std::string& name :
         {cache / "file-cache.conf", cache / "ox-session.lock", cache / "ox-" + id + ".part",
          cache / "ox-" + id + ".meta", content, metadata, content + "." + id + ".commit"}) {
      for (const std::string& suffix :
           {std::string(".ox_meta"), std::string(".part"), std::string(".meta"),
            std::string(".commit"), "." + id + ".commit"}) {
        const std::string path = name + suffix;
        // Those two are an entry's.
        if (path == metadata || path == content + "." + id + ".commit") continue;
        isDirectory ? static_cast<void>(fs::create_directory(path)) : WriteWhole(path, "planted");
        planted.push_back(path);
      }
    }
    if (isDirectory) {
      planted.push_back(cache / "ox-" + id + ".part");
      fs::create_directory(planted.back());
      WriteWhole(content + "." + id + ".commit", "planted");
    }
    EXPECT_EQ("old|o", Fetch(*Open(), kOld));
    for (int i = 0; i < 9; ++i)
      EXPECT_FALSE(Store(*Open(), kNew + std::to_string(i), "x", "x"));
    EXPECT_EQ("old|o", Fetch(*Open(), kOld));
    EXPECT_EQ(10U, Open()->Statistics().entries);
    EXPECT_EQ(configuration, ReadWhole(cache / "file-cache.conf"));
    for (const std::string& path : planted) {
      EXPECT_TRUE(isDirectory ? fs::is_directory(path) : ReadWhole(path) == "planted") << path;
      fs::remove(path);
    }
  }
}

TEST_F(SessionMends, ACommitThatADirectoryBlocksIsFinishedOnceThatIsGone) {
  StoreOld();
  const std::string name(32, 'A');
  const std::string staged = cache / "ox-0123456789abcdef-1.part";
  WriteWhole(staged, "staged");
  WriteWhole(cache / name + ".0123456789abcdef-1.commit", "committed");
  fs::create_directory(cache / name);
  EXPECT_FALSE(Store(*Open(), kNew, "x", "x"));
  EXPECT_EQ("staged", ReadWhole(staged));
  fs::remove(cache / name);
  EXPECT_EQ(3U, Open()->Statistics().entries);
  EXPECT_EQ("staged", ReadWhole(cache / name));
}

// As a power cut leaves them that kept the second of a replacement's two renamings and not the
// first.
TEST_F(SessionMends, EntriesGetTheContentThatTheirSealsTellOf) {
  const struct {
    std::vector<std::string> contents, staged;
    unsigned served;
  } cases[] = {{{"1", "1"}, {"1", "1"}, 2},
               {{"1", "1"}, {"1"}, 1},
               {{"one", "two"}, {"", "two", "six", "one"}, 2},
               {{"one", "two"}, {"six", "three"}, 0}};
  const std::string part = cache / "ox-0123456789abcdef-";
  const std::string blocked(32, 'A');
  fs::create_directory(cache / blocked);
  WriteWhole(cache / blocked + ".0123456789abcdef-9.commit", "committed");
  WriteWhole(part + "9.part", "1");
  for (const auto& c : cases) {
    const auto session = Open();
    const auto writer = Write(*session, kNew, "1", &error);
    for (std::size_t i = 0; i < 2; ++i) {
      const std::string url = kOld + std::to_string(i);
      EXPECT_FALSE(Store(*session, url, c.contents[i], "m"));
      WriteWhole(session->Fetch(url, &error)->path, "older");
    }
    for (std::size_t i = 0; i < c.staged.size(); ++i)
      WriteWhole(part + std::to_string(i) + ".part", c.staged[i]);
    EXPECT_FALSE(session->Trim(nullptr));
    EXPECT_EQ(DiskUse(cache.Path()), session->Statistics().bytes + 10);
    unsigned served = 0;
    for (std::size_t i = 0; i < 2; ++i)
      served += Fetch(*session, kOld + std::to_string(i)) == c.contents[i] + "|m" ? 1U : 0U;
    EXPECT_EQ(c.served, served);
    EXPECT_EQ(c.staged.size(), session->Statistics().leftovers + c.served);
    EXPECT_EQ("1", ReadWhole(part + "9.part"));
    EXPECT_FALSE(writer->Commit("m"));
  }
}

// Alone or together they would pass for the entry before it is committed.
TEST_F(SessionMends, WhatLiesUnderTheNamesOfANewEntryGivesWay) {
  const std::string name = fs::path(internal::ContentName(kNew)).filename();
  const std::string content = cache / name;
  const std::string metadata = content + ".ox_meta";
  const auto remove = [](const std::string& path) { return [path] { fs::remove(path); }; };
  const auto plant = [](const std::string& path) {
    return [path] { WriteWhole(path, "planted"); };
  };
  const struct {
    const char* what;
    bool isListed;
    std::vector<std::function<void()>> changes;
  } cases[] = {{"content", false, {plant(content)}},
               {"metadata", false, {plant(metadata)}},
               {"both", false, {plant(content), plant(metadata)}},
               {"content deleted", true, {remove(content)}},
               {"metadata deleted", true, {remove(metadata)}},
               {"both deleted", true, {remove(content), remove(metadata)}}};
  for (const auto& c : cases) {
    for (const auto durability : {session::Durability::kProcess, session::Durability::kPower}) {
      SCOPED_TRACE(c.what);
      options.durability = durability;
      const auto session = Open();
      EXPECT_EQ(c.isListed, c.isListed && !Store(*session, kNew, "before", "b"));
      const auto writer = Write(*session, kNew, "new", &error);
      for (const auto& change : c.changes)
        change();
      // Never both of different commits, at no moment.
      bool isMixed = false;
      static std::function<void()> look;
      look = [&] {
        if (!fs::exists(content) || !fs::exists(metadata)) return;
        if (!FilesLike(".commit").empty()) return;  // decides for the new ones
        const std::string pair = ReadWhole(content) + "|" + ReadWhole(metadata);
        isMixed = isMixed || (pair != "new|n" && pair != "before|b" && pair != "planted|planted");
      };
      internal::SetFileOperationHook([] { look(); });
      EXPECT_FALSE(writer->Commit("n"));
      internal::SetFileOperationHook(nullptr);
      EXPECT_FALSE(isMixed);
      EXPECT_EQ("new|n", Fetch(*session, kNew));
      EXPECT_FALSE(session->Trim(nullptr));
      EXPECT_EQ(DiskUse(cache.Path()), session->Statistics().bytes);
      EXPECT_EQ("new|n", Fetch(*session, kNew));
      EXPECT_FALSE(session->Remove(kNew));
    }
  }
}

TEST_F(SessionMends, AnOrderOfUseThatIsTooLongIsNotRead) {
  StoreOld();
  for (const bool isTooLong : {false, true}) {
    WriteWhole(cache / "ox-session.order", "1 somebody's\n");
    if (isTooLong) fs::resize_file(cache / "ox-session.order", 1000000);
    EXPECT_EQ(!isTooLong, Look(cache.Path()).isOrderKept);
  }
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

TEST_F(SessionMends, AForkedChildHasNoPartInTheLock) {
  auto session = Open();
  const pid_t child = fork();
  if (child == 0) {
    for (;;)
      pause();
  }
  session.reset();
  Open();
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

// At each change; the configuration stands apart from the entries.
TEST_F(SessionMends, AKilledSetLimitsLeavesNoFile) {
  const ScratchDirectory entries;
  fs::remove(cache / "file-cache.conf");
  options.limits = {100000, 10, 20000, entries.Path()};
  static int left;
  bool isKilled = true;
  for (int k = 0; isKilled; ++k) {
    const pid_t child = fork();
    if (child == 0) {
      const auto session = Open();
      left = k;
      internal::SetFileOperationHook([] {
        if (left-- == 0) raise(SIGKILL);
      });
      _exit(session->SetLimits({50000, 5, 10000, ""}) ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    isKilled = WIFSIGNALED(status);
    EXPECT_TRUE(isKilled || status == 0);
    Open();
    EXPECT_EQ(std::vector<std::string>{cache / "file-cache.conf"}, FilesLike("")) << k;
  }
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
  // Most are where a file system's times begin or end: in 1901, 1980, 2038, 2107 and 2446.
  constexpr std::int64_t kTimes[] = {INT64_MIN,  -5000000000, -2147483648, 0,
                                     315532800,  2147483647,  4354819198,  7258118400,
                                     9300000000, 15032385535, 20000000000, INT64_MAX / 1000000000,
                                     INT64_MAX};
  for (const std::int64_t seconds : kTimes) {
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

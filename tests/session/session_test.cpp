// Storing, fetching, replacing, removing; what is refused; who else is in the directory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include "session/entry_name.h"
#include "tests/support/session_rig.h"

namespace ox::testing {
namespace {

class SessionTest : public ::testing::Test {
 protected:
  internal::Survey Survey() const { return Look(directory_.Path()); }

  Error OpenError() const {
    Error error;
    EXPECT_EQ(CacheSession::Open(options_, &error), nullptr);
    return error;
  }

  const CacheDirectory directory_{{65536, 10, 8192}};
  SessionOptions options_ = OptionsFor(directory_.Path());
};

TEST_F(SessionTest, EntriesComeBackExactlyAlsoAfterARestart) {
  const std::map<std::string, std::pair<std::string, std::string>> entries = {
      {"a", {Bytes(1, 5000), std::string(1024, '~')}},
      {"http://\xC3\xA4\xF0\x9F\x98\x80/", {"x", "\x01\x7F\n"}},
      {std::string(1 << 20, 'u'), {Bytes(2, 4000), "m"}},
      {std::string(1 << 20, 'u') + "v", {"y", "../../n"}}};
  for (const auto durability : {Durability::kNone, Durability::kProcess, Durability::kPower}) {
    options_.durability = durability;
    auto session = OpenSession(options_);
    EXPECT_FALSE(Store(*session, "a", "old", "one"));
    for (const auto& [url, entry] : entries)
      EXPECT_FALSE(Store(*session, url, entry.first, entry.second));
    EXPECT_FALSE(Store(*session, "gone", "x", "y"));
    EXPECT_FALSE(session->Remove("gone"));
    EXPECT_EQ(session->Remove("gone").kind, ErrorKind::kNotFound);
    for (int restart = 0; restart < 2; ++restart) {
      for (const auto& [url, entry] : entries)
        EXPECT_EQ(Fetch(*session, url), entry.first + "|" + entry.second);
      EXPECT_EQ(Fetch(*session, "gone"), kNotThere);
      EXPECT_EQ(session->Statistics().entries, 4u);
      EXPECT_EQ(session->Statistics().bytes, DiskUse(directory_.Path()));
      session.reset();
      session = OpenSession(options_);
    }
  }
}

TEST_F(SessionTest, TheOldEntryServesUntilTheCommit) {
  const auto session = OpenSession(options_);
  ASSERT_FALSE(Store(*session, "a", "old", "1"));
  Error error;
  auto writer = session->Store("a", &error);
  ASSERT_FALSE(writer->Write("new!", 4));
  EXPECT_EQ(Fetch(*session, "a"), "old|1");
  EXPECT_EQ(writer->Commit("").kind, ErrorKind::kInvalidArgument);
  EXPECT_EQ(Fetch(*session, "a"), "old|1");
  EXPECT_FALSE(writer->Commit("2"));
  EXPECT_EQ(Fetch(*session, "a"), "new!|2");
  EXPECT_EQ(writer->Commit("3").kind, ErrorKind::kInvalidArgument);
  EXPECT_EQ(writer->Write("x", 1).kind, ErrorKind::kInvalidArgument);

  writer = Write(*session, "a", "begun", &error);
  EXPECT_EQ(writer->Write(std::string(8192, 'x').data(), 8192).kind, ErrorKind::kRefused);
  EXPECT_EQ(writer->Write("x", 1).kind, ErrorKind::kRefused);
  EXPECT_EQ(writer->Commit("m").kind, ErrorKind::kRefused) << "a part of the content is missing";

  writer = session->Store("a", &error);
  ASSERT_FALSE(writer->Write("dropped", 7));
  EXPECT_EQ(Survey().staging.size(), 1u);
  writer.reset();
  EXPECT_TRUE(Survey().staging.empty());
  EXPECT_EQ(Fetch(*session, "a"), "new!|2");
  EXPECT_EQ(session->Statistics().bytes, DiskUse(directory_.Path()));
}

TEST_F(SessionTest, InvalidUrlsMetadataAndSizesAreRefused) {
  const auto session = OpenSession(options_);
  Error error;
  for (const std::string& url : {std::string(), std::string("a\0b", 3), std::string("\xFF")}) {
    EXPECT_EQ(session->Store(url, &error), nullptr);
    EXPECT_EQ(error.kind, ErrorKind::kInvalidArgument);
    EXPECT_FALSE(session->Fetch(url, &error));
    EXPECT_EQ(error.kind, ErrorKind::kInvalidArgument);
    EXPECT_EQ(session->Remove(url).kind, ErrorKind::kInvalidArgument);
  }
  const struct {
    std::string content, metadata;
    ErrorKind kind;
  } stores[] = {
      {"x", "", ErrorKind::kInvalidArgument},
      {"x", std::string("a\0b", 3), ErrorKind::kInvalidArgument},
      {"x", "\xC3\xA4", ErrorKind::kInvalidArgument},
      {"x", std::string(1025, 'm'), ErrorKind::kInvalidArgument},
      {"", "m", ErrorKind::kInvalidArgument},
      {std::string(8192, 'x'), "m", ErrorKind::kRefused},
      {std::string(8193, 'x'), "m", ErrorKind::kRefused},
      {std::string(8191, 'x'), "m", ErrorKind::kNone},
  };
  for (const auto& store : stores)
    EXPECT_EQ(Store(*session, "a", store.content, store.metadata).kind, store.kind);
  EXPECT_EQ(session->Statistics().bytes, 8192u);
  EXPECT_EQ(DiskUse(directory_.Path()), 8192u);
}

TEST_F(SessionTest, KeepsTheConfigurationItWasOpenedWith) {
  auto session = OpenSession(options_);
  ASSERT_FALSE(Store(*session, "a", "x", "m"));
  WriteWhole(directory_ / "file-cache.conf", "MAX_CACHE_ENTRIES=0\n");
  EXPECT_FALSE(session->Trim(nullptr));
  EXPECT_EQ(session->Statistics().restarts, 1u);
  EXPECT_EQ(Fetch(*session, "a"), "x|m");
  session.reset();

  EXPECT_EQ(OpenError().kind, ErrorKind::kConfiguration);
  options_.allowDeletingAll = true;
  session = OpenSession(options_);
  EXPECT_TRUE(Survey().entries.empty());
  EXPECT_EQ(Store(*session, "a", "x", "m").kind, ErrorKind::kRefused);
}

TEST_F(SessionTest, ACacheDirectoryThatTheScanMisreadsIsAnErrorAtOpen) {
  const auto name = [&](const std::string& directory) {
    WriteWhole(directory_ / "file-cache.conf", "MAX_CACHE_ENTRIES=5\nCACHE_DIRECTORY=" + directory);
  };
  for (const std::string& directory : {directory_ / "\xC3\xA4", directory_ / "back\\slash",
                                       directory_ / "a.ox_meta", std::string("\r")}) {
    name(directory);
    EXPECT_EQ(OpenError().kind, ErrorKind::kConfiguration) << directory;
  }
  name(directory_ / "file-cache.conf/sub");
  EXPECT_EQ(OpenError().Message().find("cannot make"), 0u);
  name(directory_ / "sub/");
  ASSERT_FALSE(Store(*OpenSession(options_), "a", "x", "m"));
  EXPECT_EQ(Fetch(*OpenSession(options_), "a"), "x|m");
  EXPECT_EQ(OpenSession(options_)->Limits().cacheDirectory, directory_ / "sub/");
}

TEST_F(SessionTest, LimitsAreReadWithoutTouchingAnything) {
  ASSERT_FALSE(Store(*OpenSession(options_), "a", "x", "m"));
  WriteWhole(directory_ / "file-cache.conf",
             "MAX_CACHE_ENTRIES=0\nMAX_CACHE_SIZE=1\nCACHE_DIRECTORY=" + (directory_ / "new"));
  session::CacheLimits limits;
  EXPECT_FALSE(session::ReadLimits(directory_.Path(), options_.modulePath, &limits));
  EXPECT_EQ(limits.maxEntries, 0u);
  EXPECT_EQ(limits.maxSize, 1024u);
  EXPECT_EQ(limits.maxEntrySize, 65536u);
  EXPECT_EQ(limits.cacheDirectory, directory_ / "new");
  EXPECT_FALSE(std::filesystem::exists(directory_ / "new"));
  EXPECT_EQ(Survey().entries.size(), 1u);
  EXPECT_EQ(session::ReadLimits(directory_ / "none", options_.modulePath, &limits).kind,
            ErrorKind::kInputOutput);
  const Error error = session::ReadLimits(directory_.Path(), directory_ / "none.so", &limits);
  EXPECT_EQ(error.kind, ErrorKind::kModule);
  EXPECT_EQ(error.path, directory_ / "none.so");
}

TEST_F(SessionTest, OnlyOneProcessHasTheCacheAndTheOthersLearnWhich) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    const auto session = OpenSession(options_);
    static_cast<void>(write(ready[1], "y", 1));
    for (;;)
      pause();
  }
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  const Error error = OpenError();
  EXPECT_EQ(error.kind, ErrorKind::kInUse);
  const std::string expected = "process " + std::to_string(child) + " ";
  EXPECT_NE(error.Message().find(expected), std::string::npos) << error.Message();
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  const auto session = OpenSession(options_);
  EXPECT_EQ(OpenError().kind, ErrorKind::kInUse);
}

// A copy of the module in memory is for a second one at the same time, not for the next one.
TEST_F(SessionTest, OneSessionAfterAnotherNeedsNoCopyOfTheModule) {
  const auto hasCopy = [] {
    return ReadWhole("/proc/self/maps").find("memfd:oxfilecache-module") != std::string::npos;
  };
  for (int i = 0; i < 3; ++i) {
    const auto session = OpenSession(options_);
    EXPECT_FALSE(hasCopy());
    const CacheDirectory other({65536, 5, 8192});
    const auto further = OpenSession(OptionsFor(other.Path()));
    EXPECT_TRUE(hasCopy());
  }
}

// Each thread opens, fills and closes a cache of its own, again and again beside the others.
TEST_F(SessionTest, OneProcessHasASessionForEachDirectory) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([thread] {
      const CacheDirectory directory({65536, 5, 8192});
      for (int first = 0; first < 80; first += 8) {
        const auto session = OpenSession(OptionsFor(directory.Path()));
        const auto content = [thread](int number) { return Bytes(thread * 1000 + number, 500); };
        for (int number = first; number < first + 8; ++number) {
          EXPECT_FALSE(Store(*session, std::to_string(number), content(number), "m"));
          const int older = std::max(number - 2, 0);
          EXPECT_EQ(Fetch(*session, std::to_string(older)), content(older) + "|m");
        }
        EXPECT_EQ(session->Statistics().bytes, DiskUse(directory.Path()));
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

TEST_F(SessionTest, DeletesFilesOfNoEntryAndKeepsForeignFiles) {
  const std::string hex = "0123456789ABCDEF0123456789ABCDE";
  const std::string outside = directory_ / "outside";
  WriteWhole(outside, "precious");
  const std::string foreign[] = {"notes.txt", "ox-1.part", "0123456789abcdef0123456789abcdef",
                                 hex + "0.1.commit"};
  for (const std::string& name : foreign)
    WriteWhole(directory_ / name, "foreign");
  std::filesystem::create_directory(directory_ / (hex + "1"));
  std::filesystem::create_symlink(outside, directory_ / (hex + "2"));
  const std::string leftovers[] = {hex + "3", hex + "4.ox_meta", "ox-0123456789abcdef-7.part",
                                   "ox-0123456789abcdef-7.meta",
                                   hex + "5.0123456789abcdef-8.commit"};
  for (const std::string& name : leftovers)
    WriteWhole(directory_ / name, "leftover");

  const auto session = OpenSession(options_);
  EXPECT_EQ(session->Statistics().bytes, 0u);
  for (int i = 0; i < 30; ++i)
    EXPECT_FALSE(Store(*session, "u" + std::to_string(i), Bytes(1, 4000), "m"));
  EXPECT_FALSE(session->Trim(nullptr));
  for (const std::string& name : leftovers)
    EXPECT_FALSE(std::filesystem::exists(directory_ / name)) << name;
  for (const std::string& name : foreign)
    EXPECT_EQ(ReadWhole(directory_ / name), "foreign") << name;
  EXPECT_EQ(ReadWhole(directory_ / (hex + "2")), "precious");
  EXPECT_TRUE(std::filesystem::is_directory(directory_ / (hex + "1")));
  EXPECT_EQ(Survey().foreignFiles.size(), 7u);
  EXPECT_EQ(session->Statistics().leftovers, 4u);
}

TEST_F(SessionTest, FilesAreTheUsersAloneAndNoOtherProgramInheritsThem) {
  umask(0);
  const auto session = OpenSession(options_);
  ASSERT_FALSE(Store(*session, "a", "content", "m"));
  Error error;
  const auto entry = session->Fetch("a", &error);
  const auto writer = Write(*session, "b", "content", &error);
  int files = 0;
  for (const auto& file : std::filesystem::directory_iterator(directory_.Path())) {
    if (file.path().filename() == "file-cache.conf") continue;
    EXPECT_EQ(file.status().permissions(), std::filesystem::perms(0600)) << file.path();
    ++files;
  }
  EXPECT_EQ(files, 4);  // content, metadata, what is being written, and the lock file
  int descriptors = 0;
  for (int fd = 0; fd < 100; ++fd) {
    char path[1000] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    if (readlink(link.c_str(), path, sizeof path - 1) < 0) continue;
    if (directory_.Path().compare(0, std::string::npos, path, directory_.Path().size()) != 0)
      continue;
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << path;
    ++descriptors;
  }
  EXPECT_GE(descriptors, 3);  // content, what is being written, and the lock
}

TEST_F(SessionTest, DamageBySomebodyElseIsNoticed) {
  const auto session = OpenSession(options_);
  Error error;
  std::map<std::string, std::string> paths;
  for (const char* url : {"gone", "cut", "blocked", "taken"}) {
    ASSERT_FALSE(Store(*session, url, "content", "metadata"));
    paths[url] = session->Fetch(url, &error)->path;
  }
  std::filesystem::remove(paths["gone"]);
  EXPECT_EQ(Fetch(*session, "gone"), kNotThere);
  EXPECT_EQ(Fetch(*session, "cut"), "content|metadata");
  EXPECT_FALSE(std::filesystem::exists(paths["gone"] + ".ox_meta"));
  const std::string cut = paths["cut"] + ".ox_meta";
  for (const int bytes : {3000, 0, -1}) {
    if (bytes < 0) {
      std::filesystem::remove(cut);
    } else {
      std::filesystem::resize_file(cut, static_cast<std::uintmax_t>(bytes));
    }
    EXPECT_EQ(Fetch(*session, "cut"), kNotThere) << bytes;
    EXPECT_FALSE(std::filesystem::exists(paths["cut"])) << bytes;
    ASSERT_FALSE(Store(*session, "cut", "content", "metadata"));
  }
  std::filesystem::remove(cut);
  std::filesystem::create_directory(cut);
  EXPECT_FALSE(session->Fetch("cut", &error));
  EXPECT_EQ(error.systemError, EISDIR) << error.Message();
  EXPECT_EQ(Store(*session, "cut", "x", "m").systemError, EISDIR);
  EXPECT_EQ(ReadWhole(paths["cut"]), "content");
  std::filesystem::remove(cut);
  std::filesystem::remove(paths["taken"]);
  std::filesystem::create_directory(paths["taken"]);
  error = session->Remove("taken");
  EXPECT_EQ(error.path, paths["taken"]) << error.Message();
  EXPECT_EQ(error.systemError, EISDIR) << error.Message();
  EXPECT_FALSE(session->Remove("blocked"));
  for (const char* suffix : {"", ".ox_meta"}) {
    const std::string blocked = paths["blocked"] + suffix;
    std::filesystem::create_directory(blocked);
    const auto writer = Write(*session, "blocked", "x", &error);
    error = writer->Commit("m");
    EXPECT_EQ(error.systemError, EISDIR);
    EXPECT_EQ(error.path, blocked);
    std::filesystem::remove(blocked);
    EXPECT_FALSE(writer->Commit("m"));
    EXPECT_FALSE(session->Remove("blocked"));
  }
  std::filesystem::remove(paths["taken"]);
  for (const auto& [url, path] : paths) {
    EXPECT_FALSE(Store(*session, url, "again", "fresh"));
    EXPECT_EQ(Fetch(*session, url), "again|fresh");
  }
}

// Room is made by deleting: the message tells what kept the session from it.
TEST_F(SessionTest, AnEntryThatCannotBeDeletedForRoomIsNamed) {
  const auto session = OpenSession(options_);
  Error error;
  ASSERT_FALSE(Store(*session, "oldest", "content", "m"));
  const std::string oldest = session->Fetch("oldest", &error)->path;
  for (int i = 1; i < 10; ++i)
    ASSERT_FALSE(Store(*session, std::to_string(i), "content", "m"));
  std::filesystem::remove(oldest);
  std::filesystem::create_directory(oldest);
  error = Store(*session, "new", "content", "m");
  EXPECT_EQ(error.systemError, EISDIR) << error.Message();
  EXPECT_EQ(error.path, directory_.Path());
  EXPECT_FALSE(Store(*session, "new", "content", "m"));
  EXPECT_EQ(Fetch(*session, "new"), "content|m");
}

TEST_F(SessionTest, EntriesThatSomebodyDeletedAreInNobodysWay) {
  const auto session = OpenSession(options_);
  Error error;
  for (const bool isLone : {true, false}) {
    for (int i = 0; i < 10; ++i)
      ASSERT_FALSE(Store(*session, std::to_string(i), std::string(6000, 'x'), "m"));
    for (int i = 0; i < 10; ++i)
      std::filesystem::remove(session->Fetch(std::to_string(i), &error)->path);
    const auto first = isLone ? nullptr : Write(*session, "first", "x", &error);
    EXPECT_FALSE(Store(*session, "new", std::string(8000, 'x'), "m")) << isLone;
  }
  ASSERT_FALSE(Store(*session, "newest", "content", "m"));
  std::filesystem::remove(session->Fetch("new", &error)->path);
  Fetch(*session, "newest");
  session::TrimTarget target;
  target.entries = 1;
  EXPECT_FALSE(session->TrimTo(target, nullptr));
  EXPECT_EQ(Fetch(*session, "newest"), "content|m");
}

TEST_F(SessionTest, AFetchWritesNoTimeOfReading) {
  options_.touchInterval = std::chrono::hours(1);
  const auto session = OpenSession(options_);
  ASSERT_FALSE(Store(*session, "a", "content", "m"));
  const std::string content = directory_ / internal::ContentName("a");
  // A day's beginning, after 1980: all that vfat knows.
  constexpr std::time_t kLongAgo = 86400 * 12000;
  const timespec times[] = {{kLongAgo, 0}, {0, UTIME_OMIT}};
  for (const std::string& path : {content, content + ".ox_meta"})
    ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
  EXPECT_EQ("content|m", Fetch(*session, "a"));
  for (const std::string& path : {content, content + ".ox_meta"}) {
    struct stat status;
    ASSERT_EQ(0, lstat(path.c_str(), &status));
    EXPECT_EQ(kLongAgo, status.st_atim.tv_sec) << path;
  }
}

}  // namespace
}  // namespace ox::testing

// Storing, fetching, replacing, removing; what is refused; who else is in the directory.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "session/survey.h"
#include "tests/support/session_rig.h"

namespace ox::testing {
namespace {

class SessionTest : public ::testing::Test {
 protected:
  internal::Survey Look() const {
    internal::Survey survey;
    EXPECT_FALSE(internal::SurveyDirectory(directory_.Path(), &survey));
    return survey;
  }

  ErrorKind OpenError(const SessionOptions& options, std::string* message = nullptr) {
    Error error;
    EXPECT_EQ(CacheSession::Open(options, &error), nullptr);
    if (message != nullptr) *message = error.Message();
    return error.kind;
  }

  const CacheDirectory directory_{{65536, 10, 8192}};
  SessionOptions options_ = OptionsFor(directory_.Path());
};

TEST_F(SessionTest, EntriesComeBackExactlyAlsoAfterARestart) {
  const std::string body = Bytes(1, 5000);
  const std::string longest(1024, '~');
  const std::string longUrl = "http://example/" + std::string(5000, 'a');
  for (const auto durability : {Durability::kNone, Durability::kProcess, Durability::kPower}) {
    options_.durability = durability;
    auto session = OpenSession(options_);
    EXPECT_FALSE(Store(*session, "a", "old", "one"));
    EXPECT_FALSE(Store(*session, "a", body, longest));
    EXPECT_FALSE(Store(*session, "http://\xC3\xA4\xF0\x9F\x98\x80/", "x", "\x01\x7F\n"));
    EXPECT_FALSE(Store(*session, longUrl, body, "m"));
    EXPECT_FALSE(Store(*session, "gone", "x", "y"));
    EXPECT_FALSE(session->Remove("gone"));
    EXPECT_EQ(session->Remove("gone").kind, ErrorKind::kNotFound);
    for (int restart = 0; restart < 2; ++restart) {
      EXPECT_EQ(Fetch(*session, "a"), body + "|" + longest);
      EXPECT_EQ(Fetch(*session, "http://\xC3\xA4\xF0\x9F\x98\x80/"), "x|\x01\x7F\n");
      EXPECT_EQ(Fetch(*session, longUrl), body + "|m");
      EXPECT_EQ(Fetch(*session, "gone"), kNotThere);
      EXPECT_EQ(session->Statistics().entries, 3u);
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

  writer = session->Store("a", &error);
  ASSERT_FALSE(writer->Write("dropped", 7));
  EXPECT_EQ(Look().staging.size(), 1u);
  writer.reset();
  EXPECT_TRUE(Look().staging.empty());
  EXPECT_EQ(Fetch(*session, "a"), "new!|2");
  EXPECT_EQ(session->Statistics().bytes, DiskUse(directory_.Path()));
}

TEST_F(SessionTest, WhatCannotBeTakenIsRefused) {
  const auto session = OpenSession(options_);
  Error error;
  const std::string badUrls[] = {"",
                                 std::string("a\0b", 3),
                                 "\xFF",
                                 "\xC0\xAF",
                                 "\xE2\x82",
                                 "\xED\xA0\x80",
                                 "\xF5\x80\x80\x80"};
  for (const std::string& url : badUrls) {
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

TEST_F(SessionTest, AConfigurationThatWouldDeleteEverythingIsAnErrorAtOpen) {
  ASSERT_FALSE(Store(*OpenSession(options_), "a", "x", "m"));
  const std::string configuration = directory_ / "file-cache.conf";
  for (const char* text : {"MAX_CACHE_SIZE=65536\n", "MAX_CACHE_ENTRIES=0\n", ""}) {
    WriteWhole(configuration, text);
    EXPECT_EQ(OpenError(options_), ErrorKind::kConfiguration);
  }
  std::filesystem::remove(configuration);
  EXPECT_EQ(OpenError(options_), ErrorKind::kConfiguration);

  // A session keeps the limits it was opened with, whatever restarts its manager.
  Configure(directory_, {65536, 10, 8192});
  auto session = OpenSession(options_);
  WriteWhole(configuration, "MAX_CACHE_ENTRIES=0\n");
  EXPECT_FALSE(session->Trim(nullptr));
  EXPECT_EQ(session->Statistics().restarts, 1u);
  EXPECT_EQ(Fetch(*session, "a"), "x|m");
  session.reset();

  options_.allowDeletingAll = true;
  session = OpenSession(options_);
  EXPECT_TRUE(Look().entries.empty());
  EXPECT_EQ(Store(*session, "a", "x", "m").kind, ErrorKind::kRefused);
}

TEST_F(SessionTest, ACacheDirectoryThatTheScanMisreadsIsAnErrorAtOpen) {
  for (const std::string name : {"\xC3\xA4", "back\\slash", "a.ox_meta", ""}) {
    WriteWhole(
        directory_ / "file-cache.conf",
        "MAX_CACHE_ENTRIES=5\nCACHE_DIRECTORY=" + (name.empty() ? "" : directory_ / name) + "\r\n");
    EXPECT_EQ(OpenError(options_), ErrorKind::kConfiguration) << name;
  }
  WriteWhole(directory_ / "file-cache.conf",
             "MAX_CACHE_ENTRIES=5\nCACHE_DIRECTORY=" + (directory_ / "sub/") + "\n");
  for (int run = 0; run < 2; ++run) {
    const auto session = OpenSession(options_);
    if (run == 0) {
      EXPECT_FALSE(Store(*session, "a", "x", "m"));
    }
    EXPECT_EQ(Fetch(*session, "a"), "x|m");
    EXPECT_EQ(session->Limits().cacheDirectory, directory_ / "sub/");
  }
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
  EXPECT_EQ(Look().entries.size(), 1u);
  EXPECT_EQ(session::ReadLimits(directory_ / "none", options_.modulePath, &limits).kind,
            ErrorKind::kInputOutput);
  EXPECT_EQ(session::ReadLimits(directory_.Path(), directory_ / "none.so", &limits).kind,
            ErrorKind::kModule);
}

TEST_F(SessionTest, OnlyOneProcessHasTheCacheAndTheOthersLearnWhich) {
  int ready[2];
  int done[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(done), 0);
  const pid_t child = fork();
  if (child == 0) {
    close(done[1]);
    Error error;
    const auto session = CacheSession::Open(options_, &error);
    char byte = session != nullptr ? 'y' : 'n';
    if (write(ready[1], &byte, 1) != 1 || read(done[0], &byte, 1) < 0) _exit(1);
    _exit(0);
  }
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  ASSERT_EQ(byte, 'y');
  std::string message;
  EXPECT_EQ(OpenError(options_, &message), ErrorKind::kInUse);
  EXPECT_NE(message.find("process " + std::to_string(child) + " "), std::string::npos) << message;
  for (const int fd : {ready[0], ready[1], done[0], done[1]})
    close(fd);
  int status = 0;
  waitpid(child, &status, 0);

  const auto session = OpenSession(options_);
  EXPECT_TRUE(session);
  EXPECT_EQ(OpenError(options_), ErrorKind::kInUse);
}

TEST_F(SessionTest, WhatBelongsToNobodyGoesAndStrangersStay) {
  const std::string hex = "0123456789ABCDEF0123456789ABCDE";
  const std::string outside = directory_ / "outside";
  WriteWhole(outside, "precious");
  const std::string strangers[] = {"notes.txt", "ox-1.part", "0123456789abcdef0123456789abcdef",
                                   hex + "0.1.commit"};
  for (const std::string& name : strangers)
    WriteWhole(directory_ / name, "stranger");
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
  for (const std::string& name : strangers)
    EXPECT_EQ(ReadWhole(directory_ / name), "stranger") << name;
  EXPECT_EQ(ReadWhole(directory_ / (hex + "2")), "precious");
  EXPECT_TRUE(std::filesystem::is_directory(directory_ / (hex + "1")));
  EXPECT_EQ(Look().strangers.size(), 7u);
}

TEST_F(SessionTest, DamageBySomebodyElseIsNoticed) {
  const auto session = OpenSession(options_);
  for (const char* url : {"gone", "cut", "blocked"})
    ASSERT_FALSE(Store(*session, url, "content", "metadata"));
  Error error;
  const auto pathOf = [&](const char* url) { return session->Fetch(url, &error)->path; };
  const std::string gone = pathOf("gone");
  const std::string cut = pathOf("cut");
  const std::string blocked = pathOf("blocked");
  unlink(gone.c_str());
  WriteWhole(cut + ".ox_meta", "meta");
  EXPECT_FALSE(session->Remove("blocked"));
  mkdir(blocked.c_str(), 0700);

  EXPECT_EQ(Fetch(*session, "gone"), kNotThere);
  EXPECT_FALSE(std::filesystem::exists(gone + ".ox_meta") && Fetch(*session, "gone") != kNotThere);
  EXPECT_EQ(Fetch(*session, "cut"), "content|meta");
  for (const std::uintmax_t bytes : {3000, 0}) {
    std::filesystem::resize_file(cut + ".ox_meta", bytes);
    EXPECT_FALSE(session->Fetch("cut", &error)) << bytes;
    EXPECT_EQ(error.kind, ErrorKind::kInputOutput) << bytes;
  }
  EXPECT_EQ(Store(*session, "blocked", "x", "m").systemError, EISDIR);
  rmdir(blocked.c_str());
  for (const char* url : {"gone", "cut", "blocked"}) {
    EXPECT_FALSE(Store(*session, url, "again", "fresh"));
    EXPECT_EQ(Fetch(*session, url), "again|fresh");
  }
}

}  // namespace
}  // namespace ox::testing

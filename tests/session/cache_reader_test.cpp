// The reader: gives what a session would, whatever state the directory is in and whatever the owner
// does meanwhile, and writes nothing.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>
#include <tuple>

#include "session/cache_location.h"
#include "session/crc32c.h"
#include "session/metadata_file.h"
#include "session/session_names.h"
#include "tests/support/session_rig.h"
#include <oxfilecache/reader.h>

namespace ox::testing {
namespace {

namespace fs = std::filesystem;
using session::CacheReader;
using session::Check;

constexpr char kUrl[] = "http://host/a";

std::string Read(const CacheReader& reader, const std::string& url) {
  Error error;
  const auto found = reader.Fetch(url, &error);
  if (found) return ReadAll(found->content.Get()) + "|" + found->metadata;
  return error.kind == ErrorKind::kNotFound ? kNotThere : error.Message();
}

class CacheReaderTest : public ::testing::Test {
 protected:
  CacheDirectory directory_{{1000000, 50, 65536}};
};

TEST_F(CacheReaderTest, FindsAndListsWhatASessionStored) {
  auto session = OpenSession(OptionsFor(directory_.Path()));
  const auto reader = OpenReader(directory_.Path());
  EXPECT_EQ(reader->CacheDirectory(), directory_.Path());
  std::vector<std::string> urls;
  // Around the lengths at which a digest takes one block more, and beyond the room for a URL.
  for (const std::size_t length : {1, 55, 56, 63, 64, 65, 119, 120, 5000})
    urls.push_back(std::string(length, 'u'));
  for (const std::string& url : urls) {
    ASSERT_FALSE(Store(*session, url, "content of " + url, "metadata"));
    EXPECT_EQ(Read(*reader, url), "content of " + url + "|metadata");
  }
  EXPECT_EQ(Read(*reader, "absent"), kNotThere);
  Error error;
  const auto list = reader->List(&error);
  ASSERT_EQ(list.size(), urls.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    EXPECT_TRUE(list[i].url == urls[i] || (list[i].url.empty() && urls[i].size() == 5000));
    EXPECT_EQ(list[i].contentBytes, urls[i].size() + 11);
    EXPECT_EQ(ReadWhole(directory_ / list[i].metadataName), "metadata");
  }
}

TEST_F(CacheReaderTest, SeesWhatAnOpeningWouldPutInPlace) {
  const std::string id = internal::IdSource().Next();
  const struct {
    const char* what;
    std::function<void(const std::string& content)> change;
  } cases[] = {
      {"nothing", [](auto&) {}},
      {"staged, not decided",
       [&](auto&) {
         WriteWhole(directory_ / ("ox-" + id + ".part"), "new");
         WriteWhole(directory_ / ("ox-" + id + ".meta"), "new m");
       }},
      {"decided",
       [&](auto& content) {
         WriteWhole(directory_ / ("ox-" + id + ".part"), "new");
         WriteWhole(content + "." + id + ".commit", "new m");
       }},
      {"decided, content in place",
       [&](auto& content) {
         fs::remove(content);
         WriteWhole(content, "new");
         WriteWhole(content + "." + id + ".commit", "new m");
       }},
      {"decided, both contents gone",
       [&](auto& content) {
         fs::remove(content);
         WriteWhole(content + "." + id + ".commit", "new m");
       }},
      {"decided, the new content lost",
       [&](auto& content) {
         const auto seal = internal::MakeSeal(kUrl, 1, 3, "new m");
         const std::string commit = content + "." + id + ".commit";
         ASSERT_FALSE(internal::StageMetadataFile(commit, commit, "new m", 0, &seal,
                                                  internal::FileSync::kNone));
       }},
      {"decided, the metadata in place before the content",
       [&](auto& content) {
         const auto seal =
             internal::MakeSeal(kUrl, internal::ExtendCrc32c(0, "new", 3), 3, "new m");
         const std::string metadata = content + ".ox_meta";
         fs::remove(metadata);
         WriteWhole(directory_ / ("ox-" + id + ".part"), "new");
         ASSERT_FALSE(internal::StageMetadataFile(metadata, metadata, "new m", 0, &seal,
                                                  internal::FileSync::kNone));
       }},
      {"decided twice",
       [&](auto& content) {
         for (const std::string count : {"9", "10"}) {
           const std::string twice = "0123456789abcdef-" + count;
           WriteWhole(directory_ / ("ox-" + twice + ".part"), "new " + count);
           WriteWhole(content + "." + twice + ".commit", "new m" + count);
           SetModified(content + "." + twice + ".commit", 1000000000 + std::stoi(count));
         }
       }},
      {"content alone", [](auto& content) { fs::remove(content + ".ox_meta"); }},
      {"metadata alone", [](auto& content) { fs::remove(content); }},
      {"a link",
       [](auto& content) {
         fs::rename(content, content + "x");
         fs::create_symlink(content + "x", content);
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto session = OpenSession(OptionsFor(directory_.Path()));
    ASSERT_FALSE(Store(*session, kUrl, "old", "old m"));
    Error error;
    const std::string path = session->Fetch(kUrl, &error)->path;
    session.reset();
    c.change(path);
    const auto reader = OpenReader(directory_.Path());
    const std::string seen = Read(*reader, kUrl);
    const auto list = reader->List(&error);
    const auto listed = list.empty() ? "" : ReadWhole(directory_ / list.front().metadataName);
    session = OpenSession(OptionsFor(directory_.Path()));
    const std::string found = Fetch(*session, kUrl);
    EXPECT_TRUE(seen == found || (std::string("a link") == c.what && found == kNotThere)) << seen;
    EXPECT_EQ(list.size(), session->Statistics().entries);
    EXPECT_EQ(listed, list.empty() ? "" : found.substr(found.find('|') + 1));
    session->Remove(kUrl);
    fs::remove(path);
    fs::remove(path + "x");
  }
}

TEST_F(CacheReaderTest, MetadataWhoseBytesAPowerCutHasTakenIsDamage) {
  auto session = OpenSession(OptionsFor(directory_.Path()));
  ASSERT_FALSE(Store(*session, kUrl, "content", "metadata"));
  Error error;
  const std::string metadata = session->Fetch(kUrl, &error)->path + ".ox_meta";
  session.reset();
  const auto reader = OpenReader(directory_.Path());
  for (const std::size_t bytes : {0u, 8u}) {
    WriteWhole(metadata, std::string(bytes, '\0'));
    EXPECT_FALSE(reader->Fetch(kUrl, &error));
    EXPECT_EQ(error.kind, ErrorKind::kDamaged) << bytes;
  }
}

TEST_F(CacheReaderTest, SeesTheOlderEntryWhileAWriterThatKeptSomethingGoesOn) {
  const auto session = OpenSession(OptionsFor(directory_.Path()));
  ASSERT_FALSE(Store(*session, kUrl, "old", "old m"));
  Error error;
  const auto writer = Write(*session, kUrl, "new", &error);
  ASSERT_FALSE(writer->KeepAs(kUrl, "new m"));
  ASSERT_FALSE(writer->Write("er", 2));
  const auto reader = OpenReader(directory_.Path());
  EXPECT_EQ(Read(*reader, kUrl), "old|old m");
  EXPECT_EQ(reader->List(&error).at(0).contentBytes, 3U);
}

// Inodes, sizes and all three times.
using Status = std::tuple<ino_t, off_t, long, long, long, long, long, long>;
std::vector<Status> StatusOf(const std::vector<std::string>& paths) {
  std::vector<Status> all;
  for (const std::string& path : paths) {
    struct stat s {};
    lstat(path.c_str(), &s);
    all.emplace_back(s.st_ino, s.st_size, s.st_mtim.tv_sec, s.st_mtim.tv_nsec, s.st_ctim.tv_sec,
                     s.st_ctim.tv_nsec, s.st_atim.tv_sec, s.st_atim.tv_nsec);
  }
  return all;
}

TEST_F(CacheReaderTest, WritesNothingNotEvenATimeOfAccess) {
  ASSERT_FALSE(Store(*OpenSession(OptionsFor(directory_.Path())), kUrl, "content", "metadata"));
  WriteWhole(directory_ / "ox-0123456789abcdef-1.part", "left behind");
  std::vector<std::string> paths;
  for (const auto& file : fs::directory_iterator(directory_.Path()))
    paths.push_back(file.path());
  paths.push_back(directory_.Path());
  // File systems mounted as usual write a time of access where it is older than the last change.
  for (const std::string& path : paths)
    SetModified(path, 1000000000);
  const auto before = StatusOf(paths);
  const auto reader = OpenReader(directory_.Path());
  Error error;
  EXPECT_EQ(Read(*reader, kUrl), "content|metadata");
  EXPECT_EQ(Read(*reader, "absent"), kNotThere);
  EXPECT_EQ(reader->List(&error).size(), 1u);
  EXPECT_EQ(StatusOf(paths), before);
}

TEST_F(CacheReaderTest, FindsTheDirectoryThatTheModuleReads) {
  const char* const values[] = {
      "",
      "CACHE_DIRECTORY=/tmp/x\n",
      "CACHE_DIRECTORY = \t/tmp/x y\r\nMAX_CACHE_ENTRIES=3",
      "MAX_CACHE_ENTRIES=3\n# CACHE_DIRECTORY of old\nCACHE_DIRECTORY=/tmp/x",
      "xCACHE_DIRECTORYx=/tmp/x/\nCACHE_DIRECTORY=/tmp/y",
      "CACHE_DIRECTORY=\nMAX_CACHE_SIZE=5",
      "CACHE_DIRECTORY",
      "CACHE_DIRECTORY=relative/x",
  };
  for (const std::string text : values) {
    for (const std::size_t before : {0, 990, 1010}) {
      SCOPED_TRACE(std::to_string(before) + text);
      WriteWhole(directory_ / "file-cache.conf", std::string(before, '\n') + text);
      session::CacheLimits limits;
      ASSERT_FALSE(session::ReadLimits(directory_.Path(), OptionsFor("").modulePath, &limits));
      ASSERT_FALSE(internal::MakeAbsolute(&limits.cacheDirectory));
      std::string found;
      EXPECT_FALSE(internal::FindCacheDirectory(directory_.Path(), &found));
      EXPECT_EQ(found, limits.cacheDirectory);
    }
  }
}

std::string ContentOf(int version) {
  return Bytes(static_cast<std::uint64_t>(version), 100 + static_cast<std::size_t>(version) % 3000);
}

// Fetches until told to stop. Counts the pairs found; anything else but "not found" is a failure.
void FetchAll(const CacheReader& reader, int urls, const std::atomic<bool>& isOver, bool mayMiss,
              std::atomic<int>& found) {
  for (int i = 0; !isOver; ++i) {
    Error error;
    const auto entry = reader.Fetch("url " + std::to_string(i % urls), &error);
    if (entry) {
      ++found;
      EXPECT_EQ(ReadAll(entry->content.Get()), ContentOf(std::stoi(entry->metadata)));
    } else {
      EXPECT_TRUE(mayMiss && error.kind == ErrorKind::kNotFound) << error.Message();
    }
  }
}

TEST_F(CacheReaderTest, GivesPairsOfOneCommitWhileTheOwnerReplacesAndEvicts) {
  const struct {
    Durability durability;
    int urls;
    std::uint64_t entries;
    bool mayMiss;
  } cases[] = {{Durability::kProcess, 1, 9, false},
               {Durability::kProcess, 4, 2, true},
               {Durability::kNone, 1, 9, true}};
  for (const auto& c : cases) {
    const CacheDirectory directory({100000, c.entries, 65536});
    auto session = OpenSession(OptionsFor(directory.Path(), c.durability));
    // Without the sums, so that the pairing alone is tried.
    const auto reader = OpenReader(directory.Path(), Check::kNever);
    const auto store = [&](int version) {
      return Store(*session, "url " + std::to_string(version % c.urls), ContentOf(version),
                   std::to_string(version));
    };
    ASSERT_FALSE(store(0));
    std::atomic<bool> isOver{false};
    std::atomic<int> found{0};
    const auto fetch = [&] { FetchAll(*reader, c.urls, isOver, c.mayMiss, found); };
    std::thread readers[] = {std::thread(fetch), std::thread(fetch)};
    // On a busy machine the readers come second.
    for (int version = 1; version < 600 || (found < 100 && version < 100000); ++version) {
      EXPECT_FALSE(store(version));
      if (version % 100 == 0) {
        EXPECT_FALSE(session->SetMetadata("url " + std::to_string(version % c.urls),
                                          std::to_string(version)));
      }
    }
    isOver = true;
    for (std::thread& thread : readers)
      thread.join();
    EXPECT_GE(found, 100);
  }
}

}  // namespace
}  // namespace ox::testing

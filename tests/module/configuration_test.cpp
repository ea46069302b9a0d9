#include <gtest/gtest.h>

#include <string>

#include "tests/support/cache_rig.h"

namespace ox::testing {
namespace {

std::string LimitsFrom(const std::string& configuration) {
  CacheRig rig("");
  rig.host.WriteFile("/c/file-cache.conf", configuration);
  EXPECT_TRUE(rig.Start());
  return std::to_string(rig.manager->GetMaxSize()) + " " +
         std::to_string(rig.manager->GetMaxEntries()) + " " +
         std::to_string(rig.manager->GetMaxCacheValueSize());
}

TEST(Configuration, Numbers) {
  const struct {
    std::string text;
    const char* limits;  // size, entries, entry size
  } cases[] = {
      {"", "1048576 0 65536"},
      {"MAX_CACHE_SIZE=2097152\nMAX_CACHE_ENTRIES=200\r\nMAX_CACHE_ENTRY_SIZE=3000",
       "2097152 200 3000"},
      {"MAX_CACHE_SIZE = 5000", "5000 0 65536"},
      {"MAX_CACHE_SIZE=-5", "1024 0 65536"},
      {"MAX_CACHE_SIZE=x1200", "1200 0 65536"},
      {"MAX_CACHE_SIZE=0x2000", "1024 0 65536"},
      {"MAX_CACHE_SIZE=\n4096", "1024 0 65536"},
      {"MAX_CACHE_SIZE=\r\n4096", "1024 0 65536"},
      {"MAX_CACHE_SIZE=\r4096", "4096 0 65536"},
      {"MAX_CACHE_SIZE", "1024 0 65536"},
      {"MAX_CACHE_SIZE=100\nMAX_CACHE_ENTRY_SIZE=0\nMAX_CACHE_ENTRIES=0", "1024 0 1024"},
      {"#MAX_CACHE_ENTRIES=5\nMAX_CACHE_ENTRIES=6", "1048576 5 65536"},
      {"NOT_MAX_CACHE_ENTRIES_EITHER 7", "1048576 7 65536"},
      {"max_cache_entries=7", "1048576 0 65536"},
      {"MAX_CACHE_ENTRIES=4294967295", "1048576 4294967295 65536"},
      {std::string("\0MAX_CACHE_ENTRIES=5", 20), "1048576 0 65536"},
      {std::string(1024 - 19, '#') + "MAX_CACHE_ENTRIES=12", "1048576 1 65536"},
      {std::string(1024, '#') + "MAX_CACHE_ENTRIES=12", "1048576 0 65536"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.limits, LimitsFrom(c.text)) << c.text;
  if (sizeof(unsigned long) > 4) {
    EXPECT_EQ("4294967295 4294967295 4294967295",
              LimitsFrom("MAX_CACHE_SIZE=4294967296\nMAX_CACHE_ENTRIES=9999999999\n"
                         "MAX_CACHE_ENTRY_SIZE=99999999999999999999999"));
  }
}

// Where the cache then lies shows in the path of a new entry.
TEST(Configuration, Directory) {
  const struct {
    const char* text;
    const char* directory;
  } cases[] = {
      {"", "/c"},
      {"CACHE_DIRECTORY=/other", "/other"},
      {"CACHE_DIRECTORY=/other/\n", "/other/"},
      {"CACHE_DIRECTORY =  \t /other  \r\nX", "/other  "},
      {"CACHE_DIRECTORY is here = \"/q\"\n", "\"/q\""},
      {"CACHE_DIRECTORY=\n", "/c"},
      {"CACHE_DIRECTORY=  \n", "/c"},
      {"CACHE_DIRECTORY=\r\n", ""},
      {"CACHE_DIRECTORY=", ""},
      {"CACHE_DIRECTORY=  ", ""},
      {"CACHE_DIRECTORY\n=/other", "/c"},
      {"CACHE_DIRECTORY", "/c"},
      {"CACHE_DIRECTORY=/\xC3\xA4\xF3", "/\xC3\xA4\xF0\xBD\xBE\x80"},
      {"CACHE_DIRECTORY=/\xE2\r\xAC", "/\xEF\xBF\xBD"},  // the value alone is decoded
      {"CACHE_DIRECTORY=/q\xC0\x80r", "/q"},             // up to an encoded zero
      {"CACHE_DIRECTORY=\xC0\x80r", ""},
  };
  for (const auto& c : cases) {
    CacheRig rig("");
    rig.host.WriteFile("/c/file-cache.conf", std::string("MAX_CACHE_ENTRIES=9\n") + c.text);
    ASSERT_TRUE(rig.Start());
    const std::string log = rig.host.TakeLog();
    EXPECT_NE(std::string::npos, log.find(std::string("EnumerateDirectory ") + c.directory + "\n"))
        << c.text;
    auto* entry = rig.Create("abc", 1, "m");
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(std::string(c.directory) + "/09100589C32DF40B6D69F3D7821EF727",
              Utf8(entry->GetFile()));
    EXPECT_TRUE(rig.manager->Add(entry));
    EXPECT_EQ(entry, rig.Get("abc")) << c.text;
  }
}

TEST(Configuration, AReadThatClaimsTooMuchHasReadNothing) {
  CacheRig rig("MAX_CACHE_ENTRIES=3\n");
  rig.host.claimedRead = 1025;
  ASSERT_TRUE(rig.Start());
  EXPECT_EQ(0U, rig.manager->GetMaxEntries());
}

TEST(Configuration, TheDoubledSeparatorOfADirectoryThatEndsInOne) {
  CacheRig rig("");
  rig.host.defaultDirectory = "/c/";
  rig.host.WriteFile("/c//file-cache.conf", "MAX_CACHE_ENTRIES=4\n");
  ASSERT_TRUE(rig.Start());
  EXPECT_EQ(4U, rig.manager->GetMaxEntries());
  EXPECT_EQ("/c//09100589C32DF40B6D69F3D7821EF727", Utf8(rig.Create("abc", 1, "m")->GetFile()));
}

}  // namespace
}  // namespace ox::testing

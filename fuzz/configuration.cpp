// Any bytes as "file-cache.conf": the limits are those of a second reading, written differently.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "tests/support/cache_rig.h"

namespace {

using ox::testing::CacheRig;

std::size_t FindEnd(const std::string& text, std::size_t from, const char* any) {
  return std::min(text.find_first_of(any, from), text.size());
}

unsigned long ReadNumber(const std::string& text, const std::string& key, unsigned long missing) {
  const std::size_t found = text.find(key);
  if (found == std::string::npos) return missing;
  const std::size_t at = FindEnd(text, found + key.size(), "0123456789\n-");
  unsigned __int128 number = 0;
  for (std::size_t i = at; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    number =
        std::min<unsigned __int128>(number * 10 + static_cast<unsigned>(text[i] - '0'), UINT64_MAX);
  }
  return static_cast<unsigned long>(std::min<unsigned __int128>(number, UINT32_MAX));
}

// Of the value only where it is; whether it is decoded right is another fuzzer's question.
bool NamesDirectory(const std::string& text, std::string* value) {
  const std::string key = "CACHE_DIRECTORY";
  const std::size_t found = text.find(key);
  if (found == std::string::npos) return false;
  const std::size_t equals = FindEnd(text, found + key.size(), "=\n");
  if (equals == text.size() || text[equals] == '\n') return false;
  std::size_t at = text.find_first_not_of(" \t", equals + 1);
  if (at == std::string::npos) at = text.size();
  if (at < text.size() && text[at] == '\n') return false;
  *value = text.substr(at, FindEnd(text, at, "\r\n") - at);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file(reinterpret_cast<const char*>(data), size);
  CacheRig rig("");
  rig.host.WriteFile("/c/file-cache.conf", file);
  EXPECT_TRUE(rig.Start());
  const std::string text = file.substr(0, std::min<std::size_t>(1024, file.find('\0')));
  EXPECT_EQ(std::max(1024UL, ReadNumber(text, "MAX_CACHE_SIZE", 1048576)),
            rig.manager->GetMaxSize());
  EXPECT_EQ(ReadNumber(text, "MAX_CACHE_ENTRIES", 0), rig.manager->GetMaxEntries());
  EXPECT_EQ(std::max(1024UL, ReadNumber(text, "MAX_CACHE_ENTRY_SIZE", 65536)),
            rig.manager->GetMaxCacheValueSize());
  rig.manager->SetMaxEntries(1);
  auto* value = rig.Create("abc", 0, "m");
  std::string directory = "/c";
  NamesDirectory(text, &directory);
  directory = OxString(directory.c_str()).UTF8();
  EXPECT_EQ(directory + "/09100589C32DF40B6D69F3D7821EF727", ox::testing::Utf8(value->GetFile()));
  return 0;
}

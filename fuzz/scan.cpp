// Any names in any order, files and directories, in the cache directory at a start. Only metadata
// files and the content files they name are ever deleted.
#include <fuzzer/FuzzedDataProvider.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>

#include "tests/support/cache_rig.h"

namespace {

using ox::testing::CacheRig;

const std::string kSuffix = ".ox_meta";

std::string PickName(FuzzedDataProvider& input) {
  const std::string pieces[] = {
      kSuffix, "09100589C32DF40B6D69F3D7821EF727", "a", "\\", "\xE2\x82\xAC", ""};
  std::string name;
  while (input.ConsumeBool()) {
    const std::string& piece = input.PickValueInArray(pieces);
    name += piece.empty() ? input.ConsumeRandomLengthString(40) : piece;
  }
  name.erase(std::remove(name.begin(), name.end(), '\0'), name.end());
  return name;
}

// The content file that a metadata file stands for; empty when the name is not one.
std::string PartnerOf(const std::string& path) {
  const std::size_t at = path.find(kSuffix);
  if (at == std::string::npos || at + kSuffix.size() != path.size()) return {};
  // Cut by the number of UTF-16 units, with the rest standing behind it.
  const std::size_t cut = OxString(path.c_str()).Length() - kSuffix.size();
  std::string buffer = path;
  std::replace(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(cut), '\\', '/');
  buffer[cut] = '\0';
  OxString partner;
  partner.AssignUTF8(buffer.data(), cut, buffer.size());
  return partner.UTF8();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  CacheRig rig("MAX_CACHE_SIZE=" + std::to_string(input.ConsumeIntegral<std::uint16_t>()) +
               "\nMAX_CACHE_ENTRIES=" + std::to_string(input.ConsumeIntegral<std::uint8_t>()) +
               "\n");
  std::set<std::string> mayGo;
  while (input.remaining_bytes() > 0) {
    const std::string path = "/c/" + PickName(input);
    if (rig.host.FindFile(path) != nullptr) continue;
    const bool isDirectory = input.ConsumeIntegralInRange(0, 15) == 0;
    rig.host.files.push_back(
        {path, std::string(input.ConsumeIntegral<std::uint16_t>() % 3000, 'x'), isDirectory});
    const std::string seen = OxString(path.c_str()).UTF8();
    if (isDirectory || PartnerOf(seen).empty()) continue;
    mayGo.insert(path);
    mayGo.insert(PartnerOf(seen));
  }
  const auto before = rig.host.Disk();
  EXPECT_TRUE(rig.Start());
  const auto after = rig.host.Disk();
  for (const auto& [path, bytes] : before) {
    const auto found = after.find(path);
    EXPECT_TRUE(found != after.end() ? found->second == bytes : mayGo.count(path) != 0) << path;
  }
  EXPECT_GE(before.size(), after.size());
  rig.manager->SetMaxEntries(1000);
  rig.Get("abc");
  return 0;
}

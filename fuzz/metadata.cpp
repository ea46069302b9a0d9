// Any bytes as metadata: through the writer, through the reader, and through both conversions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "tests/support/cache_rig.h"
#include <oxfilecache/string.h>

namespace {

using ox::testing::CacheRig;
using ox::testing::kAbcPath;
using ox::testing::Utf8;

const std::string kMetaPath = std::string(kAbcPath) + ".ox_meta";

// What the conversions lose they lose at once: a second pass changes nothing.
void CheckConversions(const std::string& bytes) {
  const OxString text(bytes.c_str());
  const std::string once = text.UTF8();
  const OxString again(once.c_str());
  EXPECT_LE(text.Length(), bytes.size() + 1);
  if (once.find("\xED") == std::string::npos) EXPECT_EQ(once, again.UTF8());
  OxString appended(once.c_str());
  appended.Append(once.c_str());
  EXPECT_EQ(again.Length() * 2, appended.Length());
}

void CheckWriter(CacheRig& rig, const std::string& bytes) {
  auto* value = rig.Store("abc", "content", bytes);
  // A stray lead byte at the end decodes to a 0, which ends the text wherever it is assigned.
  OxString text;
  text = OxString(bytes.c_str());
  EXPECT_EQ(!text.IsEmpty(), value != nullptr);
  if (value == nullptr) return;
  EXPECT_EQ(std::string(text.UTF8()).substr(0, text.Length()), rig.host.FindFile(kMetaPath)->bytes);
}

void CheckReader(CacheRig& rig, const std::string& bytes) {
  rig.Stop();
  rig.LeavePair(kAbcPath, "content", bytes);
  EXPECT_TRUE(rig.Start());
  auto* value = rig.Get("abc");
  ASSERT_NE(nullptr, value);
  const std::string read = bytes.substr(0, 1024);
  OxString text;
  text.AssignUTF8(read.data(), std::min(read.size(), read.find('\0')), read.size());
  EXPECT_EQ(Utf8(text), Utf8(value->GetMetaData()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), std::min<std::size_t>(size, 5000));
  CacheRig rig("MAX_CACHE_ENTRIES=9\n");
  EXPECT_TRUE(rig.Start());
  CheckConversions(bytes);
  CheckWriter(rig, bytes);
  CheckReader(rig, bytes);
  return 0;
}

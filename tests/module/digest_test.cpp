#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "md5/md5.h"
#include "tests/support/recording_host.h"

namespace ox::testing {
namespace {

std::string DigestInPieces(const std::string& text, std::size_t piece) {
  MD5_CTX context;
  MD5Init(&context);
  for (std::size_t i = 0; i < text.size(); i += piece) {
    const std::size_t length = std::min(piece, text.size() - i);
    MD5Update(&context, reinterpret_cast<const unsigned char*>(text.data()) + i, length);
  }
  unsigned char digest[16];
  MD5Final(digest, &context);
  const auto* raw = reinterpret_cast<const unsigned char*>(&context);
  EXPECT_TRUE(std::all_of(raw, raw + sizeof context, [](unsigned char c) { return c == 0; }));

  std::string hex;
  for (const unsigned char byte : digest) {
    hex += "0123456789abcdef"[byte >> 4];
    hex += "0123456789abcdef"[byte & 15];
  }
  return hex;
}

// From RFC 1321, and lengths around the padding's edges (from md5sum).
TEST(Digest, KnownTexts) {
  const struct {
    std::string text;
    const char* digest;
  } cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      {std::string(55, 'x'), "04364420e25c512fd958a70738aa8f72"},
      {std::string(56, 'x'), "668a72d5ba17f08e62dabcafad6db14b"},
      {std::string(63, 'x'), "7dc2ca208106a2f703567bdff99d8981"},
      {std::string(64, 'x'), "c1bb4f81d892b2d57947682aeb252456"},
      {std::string(119, 'x'), "ab347a5f68c8a443cfcddc633f12c24f"},
      {std::string(120, 'x'), "fb98667f98096de92620b64f46e1c5b5"},
      {std::string(1000, 'x'), "398533d48111e9f664b1f64cb10c4b63"},
  };
  RecordingHost host;
  for (const auto& c : cases) {
    for (const std::size_t piece : {1, 55, 63, 64, 65, 1000}) {
      EXPECT_EQ(c.digest, DigestInPieces(c.text, piece)) << c.text.size() << " by " << piece;
    }
  }
}

TEST(Digest, TheLengthCarriesIntoItsHighWord) {
  RecordingHost host;
  MD5_CTX context;
  MD5Init(&context);
  context.count[0] = 0xFFFFFE00;  // bits, as if 2^32 - 512 had gone before
  const unsigned char block[64] = {};
  MD5Update(&context, block, sizeof block);
  EXPECT_EQ(0U, context.count[0]);
  EXPECT_EQ(1U, context.count[1]);
}

}  // namespace
}  // namespace ox::testing

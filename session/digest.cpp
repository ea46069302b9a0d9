#include "session/digest.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ox::internal {
namespace {

constexpr std::size_t kBlockBytes = 64;
constexpr std::size_t kLengthBytes = 8;

using State = std::array<std::uint32_t, 4>;

// Integer parts of 2^32 * |sin(i)|, i = 1 to 64.
constexpr std::uint32_t kSines[64] = {
    0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501,
    0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821,
    0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8,
    0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A,
    0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70,
    0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665,
    0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1,
    0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391,
};

// Of each round: by how many bits its steps rotate, in turn, and which words they take.
struct Round {
  unsigned rotations[4];
  unsigned firstWord;
  unsigned stride;
};
constexpr Round kRounds[4] = {{{7, 12, 17, 22}, 0, 1},
                              {{5, 9, 14, 20}, 1, 5},
                              {{4, 11, 16, 23}, 5, 3},
                              {{6, 10, 15, 21}, 0, 7}};

std::uint32_t Combine(unsigned round, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  switch (round) {
    case 0:
      return d ^ (b & (c ^ d));
    case 1:
      return c ^ (d & (b ^ c));
    case 2:
      return b ^ c ^ d;
    default:
      return c ^ (b | ~d);
  }
}

std::uint32_t WordAt(const unsigned char* bytes) {
  return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[3]} << 24;
}

void AddBlock(const unsigned char* block, State* state) {
  auto [a, b, c, d] = *state;
  for (unsigned step = 0; step < 64; ++step) {
    const Round& round = kRounds[step / 16];
    const unsigned word = (round.firstWord + round.stride * (step % 16)) % 16;
    const std::uint32_t sum =
        a + Combine(step / 16, b, c, d) + WordAt(block + 4 * word) + kSines[step];
    const unsigned bits = round.rotations[step % 4];
    a = d;
    d = c;
    c = b;
    b += sum << bits | sum >> (32 - bits);
  }
  (*state)[0] += a;
  (*state)[1] += b;
  (*state)[2] += c;
  (*state)[3] += d;
}

template <typename Number>
void Put(Number number, unsigned char* bytes) {
  for (std::size_t i = 0; i < sizeof number; ++i)
    bytes[i] = static_cast<unsigned char>(number >> (8 * i));
}

}  // namespace

std::array<unsigned char, format::kDigestBytes> Md5(std::string_view text) {
  State state = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  std::size_t left = text.size();
  for (; left >= kBlockBytes; left -= kBlockBytes, bytes += kBlockBytes)
    AddBlock(bytes, &state);

  // What is left, a bit, zeros, and the length in bits at the end of a block.
  unsigned char end[2 * kBlockBytes] = {};
  if (left > 0) std::memcpy(end, bytes, left);
  end[left] = 0x80;
  const std::size_t size = left + 1 + kLengthBytes <= kBlockBytes ? kBlockBytes : 2 * kBlockBytes;
  Put(std::uint64_t{text.size()} * 8, end + size - kLengthBytes);
  for (std::size_t done = 0; done < size; done += kBlockBytes)
    AddBlock(end + done, &state);

  std::array<unsigned char, format::kDigestBytes> digest;
  for (std::size_t i = 0; i < state.size(); ++i)
    Put(state[i], digest.data() + 4 * i);
  return digest;
}

}  // namespace ox::internal

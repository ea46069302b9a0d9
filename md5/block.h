// What MD5 (RFC 1321) does to a block, without memory of its own: for md5.cpp, which moves memory
// through the kernel, and for programs that have no kernel.
#ifndef OX_MD5_BLOCK_H_
#define OX_MD5_BLOCK_H_

#include <cstddef>
#include <cstdint>

namespace ox::internal {

constexpr std::size_t kMd5BlockBytes = 64;
constexpr std::size_t kMd5BlockWords = 16;
constexpr std::uint32_t kMd5Start[4] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};

// Integer parts of 2^32 * |sin(i)|, i = 1 to 64.
constexpr std::uint32_t kMd5Sines[64] = {
    0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501,
    0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821,
    0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8,
    0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A,
    0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70,
    0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665,
    0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1,
    0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391,
};

struct Md5Words {
  std::uint32_t a, b, c, d;
};

inline std::uint32_t RotateLeft(std::uint32_t x, unsigned bits) {
  return (x << bits) | (x >> (32 - bits));
}

// The four auxiliary functions of the RFC, F and G in forms that save an operation.
struct Md5F {
  static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return z ^ (x & (y ^ z));
  }
};
struct Md5G {
  static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return y ^ (z & (x ^ y));
  }
};
struct Md5H {
  static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) { return x ^ y ^ z; }
};
struct Md5I {
  static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return y ^ (x | ~z);
  }
};

template <typename Function, unsigned kBits>
inline void Md5Step(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                    std::uint32_t word, std::uint32_t sine) {
  a = b + RotateLeft(a + Function::Mix(b, c, d) + word + sine, kBits);
}

// Sixteen steps: step i takes word (start + stride * i) modulo 16 and rotates by the four amounts
// in turn.
template <typename Function, unsigned kS1, unsigned kS2, unsigned kS3, unsigned kS4>
inline void Md5Round(Md5Words& w, const std::uint32_t* x, unsigned start, unsigned stride,
                     const std::uint32_t* sines) {
  unsigned k = start;
  for (unsigned i = 0; i < kMd5BlockWords; i += 4) {
    Md5Step<Function, kS1>(w.a, w.b, w.c, w.d, x[k % kMd5BlockWords], sines[i]);
    Md5Step<Function, kS2>(w.d, w.a, w.b, w.c, x[(k + stride) % kMd5BlockWords], sines[i + 1]);
    Md5Step<Function, kS3>(w.c, w.d, w.a, w.b, x[(k + 2 * stride) % kMd5BlockWords], sines[i + 2]);
    Md5Step<Function, kS4>(w.b, w.c, w.d, w.a, x[(k + 3 * stride) % kMd5BlockWords], sines[i + 3]);
    k += 4 * stride;
  }
}

inline std::uint32_t DecodeWord(const unsigned char* p) {
  return std::uint32_t{p[0]} | std::uint32_t{p[1]} << 8 | std::uint32_t{p[2]} << 16 |
         std::uint32_t{p[3]} << 24;
}

inline void EncodeWord(std::uint32_t word, unsigned char* p) {
  p[0] = static_cast<unsigned char>(word);
  p[1] = static_cast<unsigned char>(word >> 8);
  p[2] = static_cast<unsigned char>(word >> 16);
  p[3] = static_cast<unsigned char>(word >> 24);
}

// `words` is room for the block's sixteen words, which are left there.
inline void AddMd5Block(std::uint32_t state[4], const unsigned char* block, std::uint32_t* words) {
  for (std::size_t i = 0; i < kMd5BlockWords; ++i)
    words[i] = DecodeWord(block + 4 * i);

  Md5Words w = {state[0], state[1], state[2], state[3]};
  Md5Round<Md5F, 7, 12, 17, 22>(w, words, 0, 1, kMd5Sines);
  Md5Round<Md5G, 5, 9, 14, 20>(w, words, 1, 5, kMd5Sines + 16);
  Md5Round<Md5H, 4, 11, 16, 23>(w, words, 5, 3, kMd5Sines + 32);
  Md5Round<Md5I, 6, 10, 15, 21>(w, words, 0, 7, kMd5Sines + 48);
  state[0] += w.a;
  state[1] += w.b;
  state[2] += w.c;
  state[3] += w.d;
}

}  // namespace ox::internal

#endif

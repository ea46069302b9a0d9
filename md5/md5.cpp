#include "md5/md5.h"

#include <cstddef>

#include <oxfilecache/kernel.h>

namespace {

constexpr std::size_t kBlockBytes = 64;
constexpr std::size_t kBlockWords = 16;
constexpr std::size_t kLengthOffset = 56;
constexpr std::size_t kLengthBytes = 8;

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

constexpr unsigned char kPadding[kBlockBytes] = {0x80};

struct Words {
  std::uint32_t a, b, c, d;
};

std::uint32_t RotateLeft(std::uint32_t x, unsigned bits) {
  return (x << bits) | (x >> (32 - bits));
}

// The four auxiliary functions of the RFC, F and G in forms that save an operation.
struct F {
  static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return z ^ (x & (y ^ z));
  }
};
struct G {
  static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return y ^ (z & (x ^ y));
  }
};
struct H {
  static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) { return x ^ y ^ z; }
};
struct I {
  static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return y ^ (x | ~z);
  }
};

template <typename Function, unsigned kBits>
inline void Step(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                 std::uint32_t word, std::uint32_t sine) {
  a = b + RotateLeft(a + Function::Mix(b, c, d) + word + sine, kBits);
}

// Sixteen steps: step i takes word (start + stride * i) modulo 16 and rotates by the four amounts
// in turn.
template <typename Function, unsigned kS1, unsigned kS2, unsigned kS3, unsigned kS4>
inline void Round(Words& w, const std::uint32_t* x, unsigned start, unsigned stride,
                  const std::uint32_t* sines) {
  unsigned k = start;
  for (unsigned i = 0; i < kBlockWords; i += 4) {
    Step<Function, kS1>(w.a, w.b, w.c, w.d, x[k % kBlockWords], sines[i]);
    Step<Function, kS2>(w.d, w.a, w.b, w.c, x[(k + stride) % kBlockWords], sines[i + 1]);
    Step<Function, kS3>(w.c, w.d, w.a, w.b, x[(k + 2 * stride) % kBlockWords], sines[i + 2]);
    Step<Function, kS4>(w.b, w.c, w.d, w.a, x[(k + 3 * stride) % kBlockWords], sines[i + 3]);
    k += 4 * stride;
  }
}

std::uint32_t DecodeWord(const unsigned char* p) {
  return std::uint32_t{p[0]} | std::uint32_t{p[1]} << 8 | std::uint32_t{p[2]} << 16 |
         std::uint32_t{p[3]} << 24;
}

void EncodeWord(std::uint32_t word, unsigned char* p) {
  p[0] = static_cast<unsigned char>(word);
  p[1] = static_cast<unsigned char>(word >> 8);
  p[2] = static_cast<unsigned char>(word >> 16);
  p[3] = static_cast<unsigned char>(word >> 24);
}

void Transform(std::uint32_t state[4], const unsigned char* block) {
  std::uint32_t x[kBlockWords];
  for (std::size_t i = 0; i < kBlockWords; ++i)
    x[i] = DecodeWord(block + 4 * i);

  Words w = {state[0], state[1], state[2], state[3]};
  Round<F, 7, 12, 17, 22>(w, x, 0, 1, kSines);
  Round<G, 5, 9, 14, 20>(w, x, 1, 5, kSines + 16);
  Round<H, 4, 11, 16, 23>(w, x, 5, 3, kSines + 32);
  Round<I, 6, 10, 15, 21>(w, x, 0, 7, kSines + 48);
  state[0] += w.a;
  state[1] += w.b;
  state[2] += w.c;
  state[3] += w.d;

  ox::Kernel()->MemSet(x, 0, sizeof x);
}

std::size_t BufferedBytes(const MD5_CTX* context) {
  return (context->count[0] >> 3) % kBlockBytes;
}

void AddBits(MD5_CTX* context, unsigned long bytes) {
  const std::uint64_t bits = static_cast<std::uint64_t>(bytes) << 3;
  const std::uint32_t low = static_cast<std::uint32_t>(bits);
  context->count[0] += low;
  if (context->count[0] < low) ++context->count[1];
  context->count[1] += static_cast<std::uint32_t>(bits >> 32);
}

}  // namespace

void MD5Init(MD5_CTX* context) {
  context->count[0] = 0;
  context->count[1] = 0;
  context->state[0] = 0x67452301;
  context->state[1] = 0xEFCDAB89;
  context->state[2] = 0x98BADCFE;
  context->state[3] = 0x10325476;
}

void MD5Update(MD5_CTX* context, const unsigned char* input, unsigned long length) {
  const std::size_t buffered = BufferedBytes(context);
  AddBits(context, length);

  unsigned long used = 0;
  std::size_t position = buffered;
  if (buffered + length >= kBlockBytes) {
    if (buffered != 0) {
      used = kBlockBytes - buffered;
      ox::Kernel()->MemCopy(context->buffer + buffered, input, used);
      Transform(context->state, context->buffer);
    }
    for (; length - used >= kBlockBytes; used += kBlockBytes) {
      Transform(context->state, input + used);
    }
    position = 0;
  }
  if (used < length) ox::Kernel()->MemCopy(context->buffer + position, input + used, length - used);
}

void MD5Final(unsigned char digest[16], MD5_CTX* context) {
  unsigned char bits[kLengthBytes];
  EncodeWord(context->count[0], bits);
  EncodeWord(context->count[1], bits + 4);

  const std::size_t buffered = BufferedBytes(context);
  const std::size_t padding =
      (buffered < kLengthOffset ? kLengthOffset : kBlockBytes + kLengthOffset) - buffered;
  MD5Update(context, kPadding, static_cast<unsigned long>(padding));
  MD5Update(context, bits, kLengthBytes);

  for (unsigned i = 0; i < 4; ++i)
    EncodeWord(context->state[i], digest + 4 * i);
  ox::Kernel()->MemSet(context, 0, sizeof *context);
}

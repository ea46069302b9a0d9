#include "session/crc32c.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
#elif defined(__aarch64__)
#include <arm_acle.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace ox::internal {
namespace {

// Of a byte, and of a byte that one, two or three zeros follow: four bytes in one step. ("Slicing
// by 4", M. Kounavis and F. Berry, A Systematic Approach to Building High Performance
// Software-based CRC Generators, 2005.)
using Tables = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr std::uint32_t kReversedPolynomial = 0x82f63b78;

constexpr Tables MakeTables() {
  Tables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte;
    for (auto& table : tables) {
      for (int bit = 0; bit < 8; ++bit)
        crc = (crc & 1) != 0 ? (crc >> 1) ^ kReversedPolynomial : crc >> 1;
      table[byte] = crc;
    }
  }
  return tables;
}

std::uint32_t WordAt(const unsigned char* bytes) {
  return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[3]} << 24;
}

#if defined(__x86_64__) || defined(__aarch64__)

constexpr std::uint32_t TimesX(std::uint32_t polynomial) {
  return (polynomial & 1) != 0 ? (polynomial >> 1) ^ kReversedPolynomial : polynomial >> 1;
}

// Polynomials modulo that of the CRC; the highest bit is the coefficient of x^0.
constexpr std::uint32_t Product(std::uint32_t a, std::uint32_t b) {
  std::uint32_t product = 0;
  for (std::uint32_t bit = 0x80000000; bit != 0; bit >>= 1, b = TimesX(b))
    product ^= (a & bit) != 0 ? b : 0;
  return product;
}

// An instruction waits for the result of the one before, so three parts of the data take turns,
// each with a sum of its own. Three of them are nearly a page.
constexpr std::size_t kPartBytes = 1360;

// What a part that follows makes of each byte of a sum.
constexpr Tables MakePartTables() {
  std::uint32_t power = 0x80000000;
  for (std::size_t bit = 0; bit < 8 * kPartBytes; ++bit)
    power = TimesX(power);
  Tables tables{};
  for (std::size_t place = 0; place < tables.size(); ++place) {
    for (std::uint32_t byte = 0; byte < 256; ++byte)
      tables[place][byte] = Product(byte << (8 * place), power);
  }
  return tables;
}

std::uint32_t AfterPart(std::uint32_t sum) {
  static constexpr Tables kTables = MakePartTables();
  return kTables[0][sum & 0xff] ^ kTables[1][sum >> 8 & 0xff] ^ kTables[2][sum >> 16 & 0xff] ^
         kTables[3][sum >> 24];
}

#if defined(__x86_64__)
#define OX_WITH_CRC_INSTRUCTION __attribute__((target("sse4.2")))

bool HasInstruction() {
  return __builtin_cpu_supports("sse4.2") != 0;
}

OX_WITH_CRC_INSTRUCTION inline std::uint32_t AddWord(std::uint32_t sum, std::uint64_t word) {
  return static_cast<std::uint32_t>(_mm_crc32_u64(sum, word));
}

OX_WITH_CRC_INSTRUCTION inline std::uint32_t AddByte(std::uint32_t sum, unsigned char byte) {
  return _mm_crc32_u8(sum, byte);
}
#else
#define OX_WITH_CRC_INSTRUCTION __attribute__((target("+crc")))

bool HasInstruction() {
  return (getauxval(AT_HWCAP) & HWCAP_CRC32) != 0;
}

OX_WITH_CRC_INSTRUCTION inline std::uint32_t AddWord(std::uint32_t sum, std::uint64_t word) {
  return __crc32cd(sum, word);
}

OX_WITH_CRC_INSTRUCTION inline std::uint32_t AddByte(std::uint32_t sum, unsigned char byte) {
  return __crc32cb(sum, byte);
}
#endif

std::uint64_t LongWordAt(const unsigned char* bytes) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

OX_WITH_CRC_INSTRUCTION std::uint32_t Extend(std::uint32_t sum, const unsigned char* next,
                                             std::size_t bytes) {
  for (; bytes >= 3 * kPartBytes; bytes -= 3 * kPartBytes, next += 3 * kPartBytes) {
    std::uint32_t second = 0;
    std::uint32_t third = 0;
    for (std::size_t i = 0; i < kPartBytes; i += 8) {
      sum = AddWord(sum, LongWordAt(next + i));
      second = AddWord(second, LongWordAt(next + kPartBytes + i));
      third = AddWord(third, LongWordAt(next + 2 * kPartBytes + i));
    }
    sum = AfterPart(AfterPart(sum) ^ second) ^ third;
  }
  for (; bytes >= 8; bytes -= 8, next += 8)
    sum = AddWord(sum, LongWordAt(next));
  for (; bytes > 0; --bytes, ++next)
    sum = AddByte(sum, *next);
  return sum;
}

#else

bool HasInstruction() {
  return false;
}

std::uint32_t Extend(std::uint32_t sum, const unsigned char* /*next*/, std::size_t /*bytes*/) {
  return sum;
}

#endif

}  // namespace

std::uint32_t ExtendCrc32cByTable(std::uint32_t crc, const void* data, std::size_t bytes) {
  static constexpr Tables kTables = MakeTables();
  const auto* next = static_cast<const unsigned char*>(data);
  crc = ~crc;
  for (; bytes >= 4; bytes -= 4, next += 4) {
    crc ^= WordAt(next);
    crc = kTables[3][crc & 0xff] ^ kTables[2][crc >> 8 & 0xff] ^ kTables[1][crc >> 16 & 0xff] ^
          kTables[0][crc >> 24];
  }
  for (; bytes > 0; --bytes, ++next)
    crc = kTables[0][(crc ^ *next) & 0xff] ^ (crc >> 8);
  return ~crc;
}

std::uint32_t ExtendCrc32c(std::uint32_t crc, const void* data, std::size_t bytes) {
  static const bool hasInstruction = HasInstruction();
  if (!hasInstruction) return ExtendCrc32cByTable(crc, data, bytes);
  return ~Extend(~crc, static_cast<const unsigned char*>(data), bytes);
}

}  // namespace ox::internal

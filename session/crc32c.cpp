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

using Table = std::array<std::uint32_t, 256>;

constexpr Table MakeTable() {
  constexpr std::uint32_t kReversedPolynomial = 0x82f63b78;
  Table table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc & 1) != 0 ? (crc >> 1) ^ kReversedPolynomial : crc >> 1;
    table[byte] = crc;
  }
  return table;
}

#if defined(__x86_64__)
bool HasInstruction() {
  return __builtin_cpu_supports("sse4.2") != 0;
}

__attribute__((target("sse4.2"))) std::uint32_t Extend(std::uint32_t crc, const unsigned char* next,
                                                       std::size_t bytes) {
  std::uint64_t state = crc;
  for (; bytes >= 8; bytes -= 8, next += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, next, sizeof word);
    state = _mm_crc32_u64(state, word);
  }
  auto last = static_cast<std::uint32_t>(state);
  for (; bytes > 0; --bytes, ++next)
    last = _mm_crc32_u8(last, *next);
  return last;
}
#elif defined(__aarch64__)
bool HasInstruction() {
  return (getauxval(AT_HWCAP) & HWCAP_CRC32) != 0;
}

__attribute__((target("+crc"))) std::uint32_t Extend(std::uint32_t crc, const unsigned char* next,
                                                     std::size_t bytes) {
  for (; bytes >= 8; bytes -= 8, next += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, next, sizeof word);
    crc = __crc32cd(crc, word);
  }
  for (; bytes > 0; --bytes, ++next)
    crc = __crc32cb(crc, *next);
  return crc;
}
#else
bool HasInstruction() {
  return false;
}

std::uint32_t Extend(std::uint32_t crc, const unsigned char* /*next*/, std::size_t /*bytes*/) {
  return crc;
}
#endif

}  // namespace

std::uint32_t ExtendCrc32cByTable(std::uint32_t crc, const void* data, std::size_t bytes) {
  static constexpr Table kTable = MakeTable();
  const auto* next = static_cast<const unsigned char*>(data);
  crc = ~crc;
  for (; bytes > 0; --bytes, ++next)
    crc = kTable[(crc ^ *next) & 0xff] ^ (crc >> 8);
  return ~crc;
}

std::uint32_t ExtendCrc32c(std::uint32_t crc, const void* data, std::size_t bytes) {
  static const bool hasInstruction = HasInstruction();
  if (!hasInstruction) return ExtendCrc32cByTable(crc, data, bytes);
  return ~Extend(~crc, static_cast<const unsigned char*>(data), bytes);
}

}  // namespace ox::internal

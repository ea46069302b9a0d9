#include "session/digest.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "md5/block.h"

namespace ox::internal {

std::array<unsigned char, format::kDigestBytes> Md5(std::string_view text) {
  constexpr std::size_t kLengthBytes = 8;
  std::uint32_t words[kMd5BlockWords];
  std::uint32_t state[4];
  std::copy(std::begin(kMd5Start), std::end(kMd5Start), state);
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  std::size_t left = text.size();
  for (; left >= kMd5BlockBytes; left -= kMd5BlockBytes, bytes += kMd5BlockBytes)
    AddMd5Block(state, bytes, words);

  // What is left, a bit, zeros, and the length in bits at the end of a block.
  unsigned char end[2 * kMd5BlockBytes] = {};
  if (left > 0) std::memcpy(end, bytes, left);
  end[left] = 0x80;
  const std::size_t size =
      left + 1 + kLengthBytes <= kMd5BlockBytes ? kMd5BlockBytes : 2 * kMd5BlockBytes;
  const std::uint64_t bits = std::uint64_t{text.size()} * 8;
  EncodeWord(static_cast<std::uint32_t>(bits), end + size - kLengthBytes);
  EncodeWord(static_cast<std::uint32_t>(bits >> 32), end + size - kLengthBytes / 2);
  for (std::size_t done = 0; done < size; done += kMd5BlockBytes)
    AddMd5Block(state, end + done, words);

  std::array<unsigned char, format::kDigestBytes> digest;
  for (std::size_t i = 0; i < 4; ++i)
    EncodeWord(state[i], digest.data() + 4 * i);
  return digest;
}

}  // namespace ox::internal

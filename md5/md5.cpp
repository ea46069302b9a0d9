#include "md5/md5.h"

#include <cstddef>

#include "md5/block.h"
#include <oxfilecache/kernel.h>

namespace {

constexpr std::size_t kBlockBytes = ox::internal::kMd5BlockBytes;
constexpr std::size_t kLengthOffset = 56;
constexpr std::size_t kLengthBytes = 8;

constexpr unsigned char kPadding[kBlockBytes] = {0x80};

void Transform(std::uint32_t state[4], const unsigned char* block) {
  std::uint32_t words[ox::internal::kMd5BlockWords];
  ox::internal::AddMd5Block(state, block, words);
  ox::Kernel()->MemSet(words, 0, sizeof words);
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
  for (unsigned i = 0; i < 4; ++i)
    context->state[i] = ox::internal::kMd5Start[i];
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
  ox::internal::EncodeWord(context->count[0], bits);
  ox::internal::EncodeWord(context->count[1], bits + 4);

  const std::size_t buffered = BufferedBytes(context);
  const std::size_t padding =
      (buffered < kLengthOffset ? kLengthOffset : kBlockBytes + kLengthOffset) - buffered;
  MD5Update(context, kPadding, static_cast<unsigned long>(padding));
  MD5Update(context, bits, kLengthBytes);

  for (unsigned i = 0; i < 4; ++i)
    ox::internal::EncodeWord(context->state[i], digest + 4 * i);
  ox::Kernel()->MemSet(context, 0, sizeof *context);
}

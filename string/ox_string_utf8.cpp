// The two conversions between UTF-8 and UTF-16. Tables and accumulation follow the Unicode
// consortium's reference converter (ConvertUTF.c), with the leniences described at each step.
#include <oxfilecache/allocation.h>
#include <oxfilecache/string.h>

namespace {

// Bytes of a sequence by its first byte. Continuation bytes count as sequences of one: texts in
// Latin-1 that were stored before depend on it.
int SequenceLength(unsigned char first) {
  if (first < 0xC0) return 1;
  if (first < 0xE0) return 2;
  if (first < 0xF0) return 3;
  if (first < 0xF8) return 4;
  return first < 0xFC ? 5 : 6;
}

constexpr std::size_t kMaxSequence = 6;

// What the marker bits add up to in a sequence of each length.
constexpr std::uint32_t kOffsets[kMaxSequence] = {0x00000000, 0x00003080, 0x000E2080,
                                                  0x03C82080, 0xFA082080, 0x82082080};
constexpr unsigned char kFirstByteMarks[5] = {0x00, 0x00, 0xC0, 0xE0, 0xF0};

constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr unsigned char kFirstLead = 0xC0;
// A last byte from here on can decode to two units: EE with the bytes FF FF behind it gives
// U+1003F.
constexpr unsigned char kFirstPairLead = 0xEE;

bool IsHighSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(std::uint32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

std::size_t RoomFor(const unsigned char* src, std::size_t count) {
  const bool endsInStrayLead = count > 0 && src[count - 1] >= kFirstPairLead;
  return count + 1 + (endsInStrayLead ? 1 : 0);
}

// Nearly all text is ASCII, or at least free of lead bytes; the two tests below let it through in
// loops without a branch for each character.
bool IsAscii(const std::uint16_t* units, std::uint32_t count) {
  std::uint32_t seen = 0;
  for (std::uint32_t i = 0; i < count; ++i)
    seen |= units[i];
  return seen < 0x80;
}

bool HasNoLeadByte(const unsigned char* src, std::size_t count) {
  std::uint32_t leads = 0;
  for (std::size_t i = 0; i < count; ++i)
    leads |= src[i] >= kFirstLead ? 1U : 0U;
  return leads == 0;
}

void Widen(const unsigned char* src, std::size_t count, std::uint16_t* out) {
  for (std::size_t i = 0; i < count; ++i)
    out[i] = src[i];
}

void Narrow(const std::uint16_t* units, std::uint32_t count, unsigned char* out) {
  for (std::uint32_t i = 0; i < count; ++i)
    out[i] = static_cast<unsigned char>(units[i]);
}

std::size_t EncodedBound(const std::uint16_t* units, std::uint32_t count) {
  std::size_t bytes = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    bytes += units[i] < 0x80 ? 1U : units[i] < 0x800 ? 2U : 3U;
  }
  return bytes;
}

int EncodedLength(std::uint32_t codePoint) {
  if (codePoint < 0x80) return 1;
  if (codePoint < 0x800) return 2;
  return codePoint < 0x10000 ? 3 : 4;
}

unsigned char* EncodeOne(std::uint32_t codePoint, unsigned char* out) {
  const int length = EncodedLength(codePoint);
  for (int i = length - 1; i > 0; --i) {
    out[i] = static_cast<unsigned char>((codePoint & 0x3F) | 0x80);
    codePoint >>= 6;
  }
  out[0] = static_cast<unsigned char>(codePoint | kFirstByteMarks[length]);
  return out + length;
}

// The code point at units[*i]; advances *i past it. A low surrogate on its own keeps its value: it
// is written as three bytes, and names of stored files depend on that.
std::uint32_t NextCodePoint(const std::uint16_t* units, std::uint32_t count, std::uint32_t* i) {
  const std::uint32_t unit = units[(*i)++];
  if (!IsHighSurrogate(unit)) return unit;
  if (*i >= count || !IsLowSurrogate(units[*i])) return kReplacement;
  const std::uint32_t low = units[(*i)++];
  return ((unit - 0xD800) << 10) + (low - 0xDC00) + 0x10000;
}

}  // namespace

int OxString::_UTF8toU16Char(const unsigned char* src, unsigned short* high,
                             unsigned short* low) const {
  const int length = SequenceLength(src[0]);
  std::uint32_t ch = 0;
  for (int i = 0; i < length; ++i) {
    ch += src[i];
    if (i + 1 < length) ch <<= 6;
  }
  ch -= kOffsets[length - 1];

  *high = static_cast<unsigned short>(kReplacement);
  *low = 0;
  if (ch < 0x10000) {
    if (!IsHighSurrogate(ch) && !IsLowSurrogate(ch)) *high = static_cast<unsigned short>(ch);
  } else if (ch < 0x110000) {
    *high = static_cast<unsigned short>(((ch - 0x10000) >> 10) + 0xD800);
    *low = static_cast<unsigned short>(((ch - 0x10000) & 0x3FF) + 0xDC00);
  }
  return length;
}

// Decodes the sequences that begin within `count` bytes; the last one may go on as far as the
// `readable` bytes and then in zeros. Returns the number of units; RoomFor() left room for all.
std::uint32_t OxString::Decode(const unsigned char* src, std::size_t count, std::size_t readable,
                               std::uint16_t* out) const {
  if (HasNoLeadByte(src, count)) {
    Widen(src, count, out);
    return static_cast<std::uint32_t>(count);
  }
  std::uint32_t units = 0;
  std::size_t i = 0;
  while (i < count && src[i] < kFirstLead)
    out[units++] = src[i++];
  while (i < count) {
    unsigned char cut[kMaxSequence] = {0, 0, 0, 0, 0, 0};
    const unsigned char* sequence = src + i;
    const std::size_t left = readable - i;
    if (left < kMaxSequence) {
      for (std::size_t k = 0; k < left; ++k)
        cut[k] = sequence[k];
      sequence = cut;
    }
    unsigned short high = 0;
    unsigned short low = 0;
    i += static_cast<std::size_t>(_UTF8toU16Char(sequence, &high, &low));
    out[units++] = high;
    if (low != 0) out[units++] = low;
  }
  return units;
}

void OxString::AppendDecoded(const char* utf8, std::size_t count, std::size_t readable) {
  if (count == 0) return;
  const auto* src = reinterpret_cast<const unsigned char*>(utf8);
  if (!EnsureCapacity(length_ + RoomFor(src, count))) return;
  length_ += Decode(src, count, readable, utf16_ + length_);
  Terminate();
  // Last, because the bytes may be this string's own UTF-8 form.
  FreeUTF8();
}

const char* OxString::UTF8() const {
  if (length_ == 0 || utf16_ == nullptr) return "";
  if (utf8_ != nullptr) return utf8_;
  const bool isAscii = IsAscii(utf16_, length_);
  const std::size_t bound = isAscii ? length_ : EncodedBound(utf16_, length_);
  auto* buffer = static_cast<unsigned char*>(ox::AllocateBytes(bound + 1));
  if (buffer == nullptr) return "";
  unsigned char* end = buffer;
  if (isAscii) {
    Narrow(utf16_, length_, buffer);
    end += length_;
  } else {
    for (std::uint32_t i = 0; i < length_;)
      end = EncodeOne(NextCodePoint(utf16_, length_, &i), end);
  }
  *end = '\0';
  utf8_ = reinterpret_cast<char*>(buffer);
  return utf8_;
}

// Storage: construction, assignment, append, growth.
#include <oxfilecache/allocation.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/string.h>

namespace {
// Lengths and capacities are 32-bit fields; a text that came near their end could not be grown.
constexpr std::size_t kMaxUnits = 0x7FFFFFFF;

// The smallest multiple of `step` above `needed`. Found by shifting: a division has no instruction
// on the smallest devices, and its substitute there brings signal handling of the C library along.
std::size_t NextMultiple(std::size_t step, std::size_t needed) {
  std::size_t chunk = step;
  while (chunk <= needed / 2)
    chunk *= 2;
  std::size_t rest = needed;
  for (; chunk >= step; chunk /= 2) {
    if (rest >= chunk) rest -= chunk;
  }
  return needed - rest + step;
}

std::size_t MeasureBytes(const char* utf8) {
  return utf8 != nullptr ? ox::Kernel()->StrLen(utf8) : 0;
}
}  // namespace

OxString::OxString() : utf8_(nullptr), utf16_(nullptr), length_(0), capacity_(0), empty_(0) {}

OxString::OxString(const char* utf8) : OxString() {
  Append(utf8);
}

OxString::OxString(const OxString& other) : OxString() {
  if (other.length_ == 0 || other.utf16_ == nullptr) return;
  if (!EnsureCapacity(std::size_t{other.length_} + 1)) return;
  ox::Kernel()->MemCopy(utf16_, other.utf16_, std::size_t{other.length_} * sizeof(std::uint16_t));
  length_ = other.length_;
  Terminate();
}

OxString::OxString(OxString&& other) noexcept
    : utf8_(other.utf8_),
      utf16_(other.utf16_),
      length_(other.length_),
      capacity_(other.capacity_),
      empty_(0) {
  other.utf8_ = nullptr;
  other.utf16_ = nullptr;
  other.length_ = 0;
  other.capacity_ = 0;
}

OxString::~OxString() {
  ox::FreeBytes(utf16_);
  utf16_ = nullptr;
  FreeUTF8();
  length_ = 0;
  capacity_ = 0;
}

OxString& OxString::operator=(const OxString& source) {
  const std::size_t count = source.TextLength();
  length_ = 0;
  FreeUTF8();
  AppendUnits(source, count);
  return *this;
}

OxString& OxString::operator=(const char* utf8) {
  // Behind the NUL of a host's text there may be nothing that can be read.
  const std::size_t count = MeasureBytes(utf8);
  AssignUTF8(utf8, count, count);
  return *this;
}

void OxString::AssignUTF8(const char* utf8, std::size_t count, std::size_t readable) {
  length_ = 0;
  AppendDecoded(utf8, count, readable);
}

void OxString::Append(const OxString& source) {
  AppendUnits(source, source.TextLength());
}

void OxString::Append(const char* utf8) {
  const std::size_t count = MeasureBytes(utf8);
  AppendDecoded(utf8, count, count);
}

void OxString::Reserve(std::size_t units) {
  EnsureCapacity(units + 1);
}

std::size_t OxString::TextLength() const {
  return utf16_ != nullptr ? ox::Kernel()->StrLen16(utf16_) : 0;
}

// `count` units from the start of the source, which may be this string.
void OxString::AppendUnits(const OxString& source, std::size_t count) {
  if (count == 0) return;
  FreeUTF8();
  if (!EnsureCapacity(std::size_t{length_} + 1 + count)) return;
  std::uint16_t* end = utf16_ + length_;
  // Read after the growth, which moves the text when the source is this string. A self-assignment
  // finds its units already in place.
  if (end != source.utf16_) {
    ox::Kernel()->MemCopy(end, source.utf16_, count * sizeof(std::uint16_t));
  }
  length_ += static_cast<std::uint32_t>(count);
  Terminate();
}

// Grows to hold `needed` units, terminator included. Without memory the result is false and the
// text stays; but a string of length 0 loses its old units, which could be taken for a new text.
bool OxString::EnsureCapacity(std::size_t needed) {
  if (needed <= capacity_) return true;
  const std::size_t grown =
      capacity_ == 0 ? needed : NextMultiple(std::size_t{capacity_} * 2, needed);
  auto* buffer = grown <= kMaxUnits
                     ? static_cast<std::uint16_t*>(ox::AllocateBytes(grown * sizeof(std::uint16_t)))
                     : nullptr;
  if (buffer == nullptr) {
    if (length_ == 0 && utf16_ != nullptr) utf16_[0] = 0;
    return false;
  }
  buffer[0] = 0;
  if (length_ != 0 && capacity_ != 0) {
    ox::Kernel()->MemCopy(buffer, utf16_, (std::size_t{length_} + 1) * sizeof(std::uint16_t));
  }
  ox::FreeBytes(utf16_);
  utf16_ = buffer;
  capacity_ = static_cast<std::uint32_t>(grown);
  return true;
}

void OxString::Terminate() {
  utf16_[length_] = 0;
}

void OxString::FreeUTF8() const {
  ox::FreeBytes(utf8_);
  utf8_ = nullptr;
}

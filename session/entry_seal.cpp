#include "session/entry_seal.h"

#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

#include "session/crc32c.h"
#include "session/durable_io.h"
#include "session/errno_meaning.h"
#include <oxfilecache/format.h>

namespace ox::internal {
namespace {

constexpr char kWithUrl = 1;
constexpr char kWithDigest = 2;
constexpr std::size_t kHeaderBytes = 13;

// https://datatracker.ietf.org/doc/draft-eastlake-fnv/
std::uint64_t Digest(std::string_view text) {
  std::uint64_t digest = 0xcbf29ce484222325;
  for (const char c : text) {
    digest ^= static_cast<unsigned char>(c);
    digest *= 0x100000001b3;
  }
  return digest;
}

std::uint32_t Sum(std::string_view text) {
  return ExtendCrc32c(0, text.data(), text.size());
}

void Append(std::uint64_t number, int bytes, std::string* text) {
  for (int i = 0; i < bytes; ++i)
    text->push_back(static_cast<char>(number >> (8 * i) & 0xff));
}

std::uint64_t NumberAt(std::string_view text, std::size_t position, std::size_t bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = bytes; i-- > 0;)
    number = number << 8 | static_cast<unsigned char>(text[position + i]);
  return number;
}

// For more than a few bytes.
bool MeansNoRoom(int error) {
  return MeansNoSpace(error) || error == E2BIG || error == ERANGE;
}

bool SetAttribute(int file, const std::string& value) {
  AnnounceFileOperation();
  return fsetxattr(file, kSealAttribute, value.data(), value.size(), 0) == 0;
}

// Longer ones were not made by us on any file system that Linux has.
constexpr std::size_t kLongestSeal = 65536;

bool MeansNoSeal(int error) {
  return error == ENODATA || error == ERANGE || error == E2BIG || IsLastingRefusal(error);
}

template <typename Get>
std::optional<EntrySeal> ReadWith(const Get& get, int* error) {
  if (error != nullptr) *error = 0;
  std::array<char, 512> shortBuffer;
  ssize_t bytes = get(shortBuffer.data(), shortBuffer.size());
  if (bytes >= 0) return DecodeSeal({shortBuffer.data(), static_cast<std::size_t>(bytes)});
  std::string longBuffer;
  if (errno == ERANGE) {
    longBuffer.resize(kLongestSeal);
    bytes = get(longBuffer.data(), longBuffer.size());
  }
  if (bytes >= 0) return DecodeSeal({longBuffer.data(), static_cast<std::size_t>(bytes)});
  if (error != nullptr && !MeansNoSeal(errno)) *error = errno;
  return std::nullopt;
}

}  // namespace

bool EntrySeal::IsOf(std::string_view otherUrl) const {
  return url.empty() ? urlDigest == Digest(otherUrl) : url == otherUrl;
}

void EntrySeal::SetMetadata(std::string_view metadata) {
  metadataSum = Sum(metadata);
}

bool EntrySeal::HasMetadata(std::string_view metadata) const {
  return metadataSum == Sum(metadata);
}

EntrySeal MakeSeal(std::string_view url, std::uint32_t contentSum, std::uint64_t contentBytes,
                   std::string_view metadata) {
  EntrySeal seal;
  seal.contentSum = contentSum;
  seal.contentBytes = static_cast<std::uint32_t>(contentBytes);
  seal.SetMetadata(metadata);
  seal.url = url;
  seal.urlDigest = Digest(url);
  return seal;
}

std::string EncodeSeal(const EntrySeal& seal) {
  std::string text;
  text.reserve(kHeaderBytes + std::max(seal.url.size(), sizeof seal.urlDigest));
  text.push_back(seal.url.empty() ? kWithDigest : kWithUrl);
  Append(seal.contentSum, 4, &text);
  Append(seal.contentBytes, 4, &text);
  Append(seal.metadataSum, 4, &text);
  if (seal.url.empty()) {
    Append(seal.urlDigest, 8, &text);
  } else {
    text += seal.url;
  }
  return text;
}

std::optional<EntrySeal> DecodeSeal(std::string_view bytes) {
  if (bytes.size() <= kHeaderBytes) return std::nullopt;
  EntrySeal seal;
  if (bytes[0] == kWithUrl) {
    seal.url = bytes.substr(kHeaderBytes);
    seal.urlDigest = Digest(seal.url);
  } else if (bytes[0] == kWithDigest && bytes.size() == kHeaderBytes + 8) {
    seal.urlDigest = NumberAt(bytes, kHeaderBytes, 8);
  } else {
    return std::nullopt;
  }
  seal.contentSum = static_cast<std::uint32_t>(NumberAt(bytes, 1, 4));
  seal.contentBytes = static_cast<std::uint32_t>(NumberAt(bytes, 5, 4));
  seal.metadataSum = static_cast<std::uint32_t>(NumberAt(bytes, 9, 4));
  return seal;
}

bool WriteSeal(int metadataFile, const EntrySeal& seal, bool isDispensable) {
  if (SetAttribute(metadataFile, EncodeSeal(seal))) return true;
  if (MeansNoRoom(errno) && !seal.url.empty()) {
    EntrySeal digestOnly = seal;
    digestOnly.url.clear();
    if (SetAttribute(metadataFile, EncodeSeal(digestOnly))) return true;
  }
  return MeansNoSpace(errno) ? isDispensable : IsLastingRefusal(errno) || MeansNoRoom(errno);
}

std::optional<EntrySeal> ReadSeal(const std::string& metadataPath, int* error) {
  const auto get = [&](char* buffer, std::size_t bytes) {
    return lgetxattr(metadataPath.c_str(), kSealAttribute, buffer, bytes);
  };
  return ReadWith(get, error);
}

std::optional<EntrySeal> ReadSeal(int metadataFile, int* error) {
  const auto get = [&](char* buffer, std::size_t bytes) {
    return fgetxattr(metadataFile, kSealAttribute, buffer, bytes);
  };
  return ReadWith(get, error);
}

bool IsOfOtherUrl(const std::string& contentPath, std::string_view url) {
  const auto seal = ReadSeal(contentPath + format::kMetadataSuffix);
  return seal && !seal->IsOf(url);
}

bool SumContent(int file, std::uint32_t* sum) {
  std::array<char, 16384> buffer;
  off_t position = 0;
  *sum = 0;
  for (;;) {
    const ssize_t part = pread(file, buffer.data(), buffer.size(), position);
    if (part < 0 && errno == EINTR) continue;
    if (part < 0) return false;
    if (part == 0) return true;
    *sum = ExtendCrc32c(*sum, buffer.data(), static_cast<std::size_t>(part));
    position += part;
  }
}

}  // namespace ox::internal

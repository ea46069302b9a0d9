// The cache directory as it stands on disk: names and sizes that data on devices depends on.
//
//   file-cache.conf     the limits, in the host's default directory
//   NAME                the content of an entry: the MD5 digest of its URL's UTF-8 form as 32
//                       characters from 0-9 and A-F, the low half of each byte first
//   NAME.ox_meta        the metadata of that entry
//
// Everything here is a constant expression and needs neither memory nor the C library, so module,
// host and tools share it. Threads: any.
#ifndef OXFILECACHE_FORMAT_H_
#define OXFILECACHE_FORMAT_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ox::format {

// The configuration, in the host's default directory.
inline constexpr char kConfigurationFileName[] = "file-cache.conf";

// Appended to the name of a content file it gives that of the metadata file.
inline constexpr char kMetadataSuffix[] = ".ox_meta";
// In characters, without the NUL.
inline constexpr std::size_t kMetadataSuffixLength = sizeof kMetadataSuffix - 1;

// Of the configuration and of a metadata file only this many bytes are looked at.
inline constexpr std::size_t kTextBytes = 1024;

// Sizes below this in a configuration are raised to it.
inline constexpr std::uint32_t kMinSize = 1024;

// Bytes of an MD5 digest.
inline constexpr std::size_t kDigestBytes = 16;
// The characters of a content file's name: a digit for each half of a byte.
inline constexpr char kContentNameCharacters[] = "0123456789ABCDEF";
// Two characters for each byte of the digest.
inline constexpr std::size_t kContentNameLength = 2 * kDigestBytes;

// Writes the name of the content whose URL has this digest, without a NUL; gives the end.
constexpr char* WriteContentName(const unsigned char* digest, char* name) {
  for (const unsigned char* end = digest + kDigestBytes; digest != end; ++digest) {
    // Low nibble first, the reverse of the usual notation: all names on disk are written so.
    *name++ = kContentNameCharacters[*digest & 0x0F];
    *name++ = kContentNameCharacters[*digest >> 4];
  }
  return name;
}

// Whether a file or path ends in the suffix of metadata files.
constexpr bool HasMetadataSuffix(std::string_view name) {
  return name.size() >= kMetadataSuffixLength &&
         name.substr(name.size() - kMetadataSuffixLength) == kMetadataSuffix;
}

// Whether a name, without its directory, is one of a content file.
constexpr bool IsContentName(std::string_view name) {
  return name.size() == kContentNameLength &&
         name.find_first_not_of(kContentNameCharacters) == std::string_view::npos;
}

}  // namespace ox::format

#endif

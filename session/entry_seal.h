// What a commit says about its entry, kept as an extended attribute of the metadata file: how long
// the content is, the sums of content and metadata, and the URL. The attribute is set on the staged
// file, so it comes into place with it, by the one renaming that decides a commit. The files
// themselves stay as every other program knows them.
//
// An entry may have no seal: the file system has no extended attributes, a copy lost them, or
// another program stored the entry. Nothing is known about it then, and it is served.
//
//   byte 0       1: the URL follows; 2: its digest follows, where the file system has too little
//                room for the URL
//   1 to 4       CRC-32C of the content
//   5 to 8       bytes of the content
//   9 to 12      CRC-32C of the metadata
//   from 13 on   the URL, or the 64-bit FNV-1a digest of it
//
// Numbers have their lowest byte first.
#ifndef OX_SESSION_ENTRY_SEAL_H_
#define OX_SESSION_ENTRY_SEAL_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <oxfilecache/error.h>

namespace ox::internal {

constexpr char kSealAttribute[] = "user.oxfilecache";

struct EntrySeal {
  std::uint32_t contentSum = 0;
  std::uint32_t contentBytes = 0;
  std::uint32_t metadataSum = 0;
  std::string url;  // empty when only its digest was kept
  std::uint64_t urlDigest = 0;

  bool IsOf(std::string_view otherUrl) const;
  void SetMetadata(std::string_view metadata);
  // Whether this is the metadata that was committed.
  bool HasMetadata(std::string_view metadata) const;
};

// Of a commit.
EntrySeal MakeSeal(std::string_view url, std::uint32_t contentSum, std::uint64_t contentBytes,
                   std::string_view metadata);

std::string EncodeSeal(const EntrySeal& seal);
// Empty when these bytes are none of ours.
std::optional<EntrySeal> DecodeSeal(std::string_view bytes);

// Sets the seal of an open metadata file. A file system that has no room for the URL gets the
// digest, one without extended attributes nothing, and neither does a full disk where the seal is
// dispensable. False with errno when it should have worked.
bool WriteSeal(int metadataFile, const EntrySeal& seal, bool isDispensable = false);
// Empty when the file has none. Also when it is missing, or its seal cannot be read just now:
// `error`, unless null, is then that errno and otherwise 0.
std::optional<EntrySeal> ReadSeal(const std::string& metadataPath, int* error = nullptr);
std::optional<EntrySeal> ReadSeal(int metadataFile, int* error = nullptr);

// Whether the entry with this content file is known to be another URL's, of the same digest.
bool IsOfOtherUrl(const std::string& contentPath, std::string_view url);

// The sum of the whole content of an open file, without moving its position. False with errno.
bool SumContent(int file, std::uint32_t* sum);

}  // namespace ox::internal

#endif

#include "scripts/device/entry_texts.h"

#include <unistd.h>

#include <array>
#include <cstdlib>

namespace ox::device {
namespace {

std::string ReadAll(int fd) {
  std::string text;
  std::array<char, 16384> piece;
  for (ssize_t count; (count = read(fd, piece.data(), piece.size())) > 0;)
    text.append(piece.data(), static_cast<std::size_t>(count));
  return text;
}

// Most are small; each tenth is as large as a picture.
std::size_t BytesOf(int version) {
  const auto seed = static_cast<std::size_t>(version) * 2654435761U;
  return seed % 10 == 0 ? 65536 - seed % 977 : 100 + seed % 5000;
}

}  // namespace

std::string UrlOf(int number) {
  return "http://device/" + std::to_string(number);
}

std::string ContentOf(int number, int version) {
  const int stored = StoredVersionOf(version);
  std::string content = UrlOf(number) + "#" + std::to_string(stored) + "#";
  const std::size_t bytes = content.size() + BytesOf(stored);
  while (content.size() < bytes)
    content += static_cast<char>('a' + (content.size() * 7 + static_cast<unsigned>(stored)) % 26);
  return content;
}

std::string MetadataOf(int number, int version) {
  return std::to_string(version) + " of " + UrlOf(number) +
         std::string(static_cast<std::size_t>(version) % 5 * 40, '.');
}

int FetchVersion(session::CacheSession& session, int number, std::string* message) {
  Error error;
  const auto entry = session.Fetch(UrlOf(number), &error);
  if (!entry) {
    *message = error.Message();
    return error.kind == ErrorKind::kNotFound ? kAbsent : kUnreadable;
  }
  const std::string content = ReadAll(entry->content.Get());
  const int version = std::atoi(entry->metadata.c_str());
  if (version > 0 && entry->metadata == MetadataOf(number, version) &&
      content == ContentOf(number, version)) {
    return version;
  }
  const auto hash = content.find('#');
  const int other = hash == content.npos ? 0 : std::atoi(content.c_str() + hash + 1);
  const bool isWhole = other > 0 && content == ContentOf(number, other);
  *message = "metadata of " + std::to_string(version) + ", content of " + std::to_string(other) +
             (isWhole ? ", whole, " : ", not whole, ") + std::to_string(content.size()) + " bytes";
  return isWhole ? kMixed : kHalf;
}

}  // namespace ox::device

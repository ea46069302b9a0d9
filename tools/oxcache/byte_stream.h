// Streams of bytes of any size, a piece at a time.
#ifndef OX_TOOLS_OXCACHE_BYTE_STREAM_H_
#define OX_TOOLS_OXCACHE_BYTE_STREAM_H_

#include <cstddef>
#include <memory>
#include <string>

#include "tools/oxcache/temporary_file.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/error.h>

namespace ox::tools {

constexpr std::size_t kPieceBytes = 65536;

Error WriteBytes(int fd, const std::string& name, const void* data, std::size_t bytes);

// Bytes from a file, or from standard input for "-".
class Input {
 public:
  static std::unique_ptr<Input> Open(const std::string& path, Error* error);
  // A file of a cache directory, where anybody may have put anything: an error unless it is a
  // regular file, and links are not followed.
  static std::unique_ptr<Input> OpenEntryFile(const std::string& path, Error* error);
  // Takes an open file; `name` is for messages.
  Input(UniqueFd fd, std::string name);

  // At most `capacity` bytes; `*bytes` is 0 at the end.
  Error Read(void* data, std::size_t capacity, std::size_t* bytes);
  // The size of a regular file, otherwise 0.
  std::uint64_t KnownSize() const;

 private:
  UniqueFd fd_;
  std::string name_;
};

// Bytes to a file, or to standard output for "-". A regular file appears whole with Commit, or not
// at all; until then an older one stays.
class Output {
 public:
  static std::unique_ptr<Output> Open(const std::string& path, Error* error);

  Error Write(const void* data, std::size_t bytes);
  Error WriteAllOf(Input& input);
  Error Commit();

 private:
  Output(UniqueFd inPlace, std::string name);
  explicit Output(std::unique_ptr<TemporaryFile> file, std::string name);

  // Exactly one of the two is there.
  UniqueFd inPlace_;
  std::unique_ptr<TemporaryFile> file_;
  const std::string name_;
};

}  // namespace ox::tools

#endif

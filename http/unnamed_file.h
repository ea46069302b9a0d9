// Files without a name, and copies of open ones.
#ifndef OX_HTTP_UNNAMED_FILE_H_
#define OX_HTTP_UNNAMED_FILE_H_

#include <cstdint>
#include <functional>
#include <string>

#include <oxfilecache/descriptor.h>
#include <oxfilecache/error.h>

namespace ox::internal::http {

// The directory itself, or when it is empty $TMPDIR, otherwise /tmp.
std::string DirectoryOrDefault(const std::string& directory);

// An empty file for writing and reading, gone once it is closed, in the directory or its default.
UniqueFd MakeUnnamedFile(const std::string& directory, Error* error);

// Gives `bytes` bytes of the file, from its position on, to `take`, until that returns an error.
// The position of the file stays.
Error ReadAll(int file, std::uint64_t bytes,
              const std::function<Error(const char*, std::size_t)>& take);

}  // namespace ox::internal::http

#endif

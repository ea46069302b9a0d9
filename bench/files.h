// Files by bare system calls, each made once. Failures throw std::system_error.
#ifndef OX_BENCH_FILES_H_
#define OX_BENCH_FILES_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace ox::bench {

[[noreturn]] void ThrowSystemError(const char* doing, const char* path);

// Create or empty, write, close.
void WriteFile(const char* path, std::string_view data);

// Open, read, close; the number of bytes, at most `capacity`.
std::size_t ReadFile(const char* path, void* data, std::size_t capacity);

// The name of a content file: `name` has room for its 32 characters and gets no terminator.
void WriteContentName(const std::string& url, char* name);

// The limits of a cache of `entries` entries that is never short of bytes.
void WriteConfiguration(const std::string& directory, std::size_t entries);

}  // namespace ox::bench

#endif

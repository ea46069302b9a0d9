#include "bench/files.h"

#include <fcntl.h>
#include <nettle/md5.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace ox::bench {

void ThrowSystemError(const char* doing, const char* path) {
  throw std::system_error(errno, std::generic_category(), std::string(doing) + " " + path);
}

void WriteFile(const char* path, std::string_view data) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) ThrowSystemError("create", path);
  const ssize_t written = write(fd, data.data(), data.size());
  if (written != static_cast<ssize_t>(data.size())) ThrowSystemError("write", path);
  close(fd);
}

std::size_t ReadFile(const char* path, void* data, std::size_t capacity) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) ThrowSystemError("open", path);
  const ssize_t count = read(fd, data, capacity);
  if (count < 0) ThrowSystemError("read", path);
  close(fd);
  return static_cast<std::size_t>(count);
}

void WriteContentName(const std::string& url, char* name) {
  md5_ctx context;
  std::uint8_t digest[MD5_DIGEST_SIZE];
  md5_init(&context);
  md5_update(&context, url.size(), reinterpret_cast<const std::uint8_t*>(url.data()));
  md5_digest(&context, sizeof digest, digest);
  for (const std::uint8_t byte : digest) {
    *name++ = "0123456789ABCDEF"[byte & 0x0F];
    *name++ = "0123456789ABCDEF"[byte >> 4];
  }
}

void WriteConfiguration(const std::string& directory, std::size_t entries) {
  WriteFile((directory + "/file-cache.conf").c_str(),
            "MAX_CACHE_SIZE=4000000000\nMAX_CACHE_ENTRY_SIZE=1000000\nMAX_CACHE_ENTRIES=" +
                std::to_string(entries) + "\n");
}

}  // namespace ox::bench

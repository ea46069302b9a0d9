#include "tests/support/session_rig.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>

#include "host/directory.h"

namespace ox::testing {

std::string ReadAll(int fd) {
  std::string text;
  char buffer[4096];
  for (ssize_t count; (count = read(fd, buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(count));
  return text;
}

void Configure(const ScratchDirectory& directory, const Limits& limits) {
  std::ostringstream text;
  text << "MAX_CACHE_SIZE=" << limits.size << "\nMAX_CACHE_ENTRIES=" << limits.entries
       << "\nMAX_CACHE_ENTRY_SIZE=" << limits.entrySize << "\n";
  WriteWhole(directory / "file-cache.conf", text.str());
}

std::uint64_t DiskUse(const std::string& directory) {
  std::vector<host::DirectoryEntry> entries;
  host::ListDirectory(directory.c_str(), &entries);
  std::uint64_t bytes = 0;
  for (const host::DirectoryEntry& entry : entries) {
    struct stat status;
    if (entry.name == "ox-session.lock" || entry.name == "file-cache.conf") continue;
    if (lstat((directory + "/" + entry.name).c_str(), &status) != 0) continue;
    if (S_ISREG(status.st_mode)) bytes += static_cast<std::uint64_t>(status.st_size);
  }
  return bytes;
}

std::string Bytes(std::uint64_t seed, std::size_t count) {
  std::minstd_rand random(static_cast<std::uint32_t>(seed * 2654435761u + 1));
  std::string bytes(count, '\0');
  for (char& byte : bytes)
    byte = static_cast<char>(random() >> 8);
  return bytes;
}

SessionOptions OptionsFor(const std::string& directory) {
  SessionOptions options;
  options.directory = directory;
  options.modulePath = OX_MODULE_PATH;
  options.touchInterval = std::chrono::seconds(0);
  return options;
}

std::unique_ptr<CacheSession> OpenSession(const SessionOptions& options) {
  Error error;
  auto session = CacheSession::Open(options, &error);
  if (session != nullptr) return session;
  std::cerr << "open: " << error.Message() << "\n";
  std::abort();
}

Error Store(CacheSession& session, const std::string& url, const std::string& content,
            const std::string& metadata) {
  Error error;
  const auto writer = session.Store(url, &error);
  if (writer == nullptr) return error;
  // In two parts, as content arrives from a network.
  const std::size_t half = content.size() / 2;
  if ((error = writer->Write(content.data(), half))) return error;
  if ((error = writer->Write(content.data() + half, content.size() - half))) return error;
  return writer->Commit(metadata);
}

std::string Fetch(CacheSession& session, const std::string& url) {
  Error error;
  const auto entry = session.Fetch(url, &error);
  if (error.kind == ErrorKind::kNotFound) return kNotThere;
  if (!entry) return "(" + error.Message() + ")";
  const std::string content = ReadAll(entry->content.Get());
  if (content.size() != entry->size) return "(wrong size)";
  return content + "|" + entry->metadata;
}

}  // namespace ox::testing

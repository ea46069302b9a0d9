#include "tests/support/session_rig.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>

namespace ox::testing {

std::string ReadAll(int fd) {
  std::string text;
  char buffer[4096];
  for (ssize_t count; (count = read(fd, buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(count));
  return text;
}

void Configure(const ScratchDirectory& directory, const Limits& limits) {
  WriteWhole(directory / "file-cache.conf",
             "MAX_CACHE_SIZE=" + std::to_string(limits.size) +
                 "\nMAX_CACHE_ENTRIES=" + std::to_string(limits.entries) +
                 "\nMAX_CACHE_ENTRY_SIZE=" + std::to_string(limits.entrySize) + "\n");
}

std::uint64_t DiskUse(const std::string& directory) {
  std::uint64_t bytes = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    const std::string name = entry.path().filename();
    if (name == "ox-session.lock" || name == "file-cache.conf") continue;
    if (std::filesystem::is_regular_file(entry.symlink_status())) bytes += entry.file_size();
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

SessionOptions OptionsFor(const std::string& directory, Durability durability) {
  SessionOptions options;
  // Limits of a few bytes are quicker to fill.
  options.blockSize = 1;
  options.directory = directory;
  options.modulePath = OX_MODULE_PATH;
  options.durability = durability;
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

std::unique_ptr<session::CacheReader> OpenReader(const std::string& directory,
                                                 session::Check check) {
  session::ReaderOptions options;
  options.directory = directory;
  options.check = check;
  Error error;
  auto reader = session::CacheReader::Open(options, &error);
  EXPECT_FALSE(error) << error.Message();
  return reader;
}

internal::Survey Look(const std::string& directory) {
  internal::Survey survey;
  EXPECT_FALSE(internal::SurveyDirectory(directory, &survey));
  return survey;
}

std::unique_ptr<StoreWriter> Write(CacheSession& session, const std::string& url,
                                   const std::string& content, Error* error) {
  auto writer = session.Store(url, error);
  if (writer == nullptr) return nullptr;
  const std::size_t half = content.size() / 2;
  *error = writer->Write(content.data(), half);
  if (!*error) *error = writer->Write(content.data() + half, content.size() - half);
  return *error ? nullptr : std::move(writer);
}

Error Store(CacheSession& session, const std::string& url, const std::string& content,
            const std::string& metadata) {
  Error error;
  const auto writer = Write(session, url, content, &error);
  return writer != nullptr ? writer->Commit(metadata) : error;
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

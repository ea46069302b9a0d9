// A scratch directory with a cache in it, and short forms of what every test does with one.
#ifndef OX_TESTS_SESSION_SESSION_RIG_H_
#define OX_TESTS_SESSION_SESSION_RIG_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/session/cache_session.h"
#include "tests/host/scratch_directory.h"

namespace ox::test {

using testing::ReadWhole;
using testing::ScratchDirectory;
using testing::WriteWhole;

std::string ReadAll(int fd);

struct Limits {
  std::uint64_t size;
  std::uint64_t entries;
  std::uint64_t entrySize;
};
void Configure(const ScratchDirectory& directory, const Limits& limits);

// Bytes in the directory: everything but the lock file and the configuration.
std::uint64_t DiskUse(const std::string& directory);

// Reproducible bytes that differ for each seed.
std::string Bytes(std::uint64_t seed, std::size_t count);

// Every change is touched at once, so that the order on disk is the order of use.
host::SessionOptions OptionsFor(const ScratchDirectory& directory);

// Null after a recorded test failure.
std::unique_ptr<host::CacheSession> OpenSession(const host::SessionOptions& options);

host::Error Store(host::CacheSession& session, const std::string& url, const std::string& content,
                  const std::string& metadata);

// "CONTENT|METADATA", or what went wrong.
std::string Fetch(host::CacheSession& session, const std::string& url);
constexpr char kNotThere[] = "(not found)";

}  // namespace ox::test

#endif

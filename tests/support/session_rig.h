// A scratch directory with a cache in it, and short forms of what every test does with one.
#ifndef OX_TESTS_SUPPORT_SESSION_RIG_H_
#define OX_TESTS_SUPPORT_SESSION_RIG_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "session/survey.h"
#include "tests/support/scratch_directory.h"
#include <oxfilecache/reader.h>
#include <oxfilecache/session.h>

namespace ox::testing {

using session::CacheSession;
using session::Durability;
using session::SessionOptions;
using session::StoreWriter;

std::string ReadAll(int fd);

struct Limits {
  std::uint64_t size;
  std::uint64_t entries;
  std::uint64_t entrySize;
};
void Configure(const ScratchDirectory& directory, const Limits& limits);

struct CacheDirectory : ScratchDirectory {
  explicit CacheDirectory(const Limits& limits) { Configure(*this, limits); }
};

// Bytes in the directory: everything but the lock file and the configuration.
std::uint64_t DiskUse(const std::string& directory);

// Reproducible bytes that differ for each seed.
std::string Bytes(std::uint64_t seed, std::size_t count);

// Every change is touched at once, so that the order on disk is the order of use.
SessionOptions OptionsFor(const std::string& directory, Durability = Durability::kProcess);

// Ends the program where none can be opened: without it nothing that follows means anything.
std::unique_ptr<CacheSession> OpenSession(const SessionOptions& options);

std::unique_ptr<session::CacheReader> OpenReader(const std::string& directory,
                                                 session::Check = session::Check::kOnce);

internal::Survey Look(const std::string& directory);

// A writer that was given the content in two parts, as it arrives from a network; null when one of
// them was refused.
std::unique_ptr<StoreWriter> Write(CacheSession& session, const std::string& url,
                                   const std::string& content, Error* error);
Error Store(CacheSession& session, const std::string& url, const std::string& content,
            const std::string& metadata);

// "CONTENT|METADATA", or what went wrong.
std::string Fetch(CacheSession& session, const std::string& url);
constexpr char kNotThere[] = "(not found)";

}  // namespace ox::testing

#endif

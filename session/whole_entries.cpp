// Entries that fit into memory, stored and fetched in one call.
#include <unistd.h>

#include <cerrno>

#include "session/without_exceptions.h"
#include <oxfilecache/session.h>

namespace ox::session {
namespace {

Error ReadContent(const FetchedEntry& entry, std::string* content) {
  if (entry.size > content->max_size()) {
    return MakeError(ErrorKind::kOutOfMemory, "the content does not fit into memory");
  }
  content->resize(static_cast<std::size_t>(entry.size));
  std::size_t filled = 0;
  while (filled < content->size()) {
    const ssize_t part =
        read(entry.content.Get(), content->data() + filled, content->size() - filled);
    if (part < 0 && errno == EINTR) continue;
    // The entry's file was cut by somebody else.
    if (part == 0) errno = EIO;
    if (part <= 0) return SystemError("cannot read the content whole", entry.path);
    filled += static_cast<std::size_t>(part);
  }
  return {};
}

}  // namespace

Error CacheSession::StoreWhole(const std::string& url, std::string_view content,
                               const std::string& metadata) {
  Error error;
  const auto writer = Store(url, &error);
  if (writer == nullptr) return error;
  error = writer->Write(content.data(), content.size());
  return error ? error : writer->Commit(metadata);
}

std::optional<WholeEntry> CacheSession::FetchWhole(const std::string& url, Error* error) {
  std::optional<WholeEntry> found;
  auto entry = Fetch(url, error);
  if (!entry) return found;
  *error = internal::WithoutExceptions([&]() -> Error {
    WholeEntry whole;
    if (Error failed = ReadContent(*entry, &whole.content)) return failed;
    whole.metadata = std::move(entry->metadata);
    found = std::move(whole);
    return {};
  });
  return found;
}

}  // namespace ox::session

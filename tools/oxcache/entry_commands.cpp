#include "tools/oxcache/entry_commands.h"

#include <ctime>
#include <vector>

#include "tools/oxcache/byte_stream.h"
#include "tools/oxcache/text.h"
#include "tools/oxcache/without_session.h"
#include <oxfilecache/format.h>

namespace ox::tools {
namespace {

using session::CacheSession;

// Of a URL in the metadata; leaves room for the other lines.
constexpr std::size_t kMaxUrlLineBytes = 900;

Error ReadMetadataFile(const std::string& path, std::string* metadata) {
  Error error;
  const auto input = Input::Open(path, &error);
  if (input == nullptr) return error;
  metadata->clear();
  std::vector<char> piece(kPieceBytes);
  while (metadata->size() <= format::kTextBytes) {
    std::size_t bytes = 0;
    if (error = input->Read(piece.data(), piece.size(), &bytes); error) return error;
    if (bytes == 0) break;
    metadata->append(piece.data(), bytes);
  }
  return {};
}

// The name on disk does not show the URL, so the metadata does.
std::string DefaultMetadata(const std::string& url) {
  std::string text;
  if (IsPlain(url) && url.size() <= kMaxUrlLineBytes) text = "URL: " + url + "\n";
  return text + "Stored: " + UtcText(std::time(nullptr)) + "\n";
}

Error MetadataFor(const PutOptions& options, std::string* metadata) {
  if (options.metadata) {
    *metadata = *options.metadata;
  } else if (options.metadataFile.empty()) {
    *metadata = DefaultMetadata(options.url);
  } else if (Error error = ReadMetadataFile(options.metadataFile, metadata)) {
    return error;
  }
  if (metadata->empty()) {
    return MakeError(
        ErrorKind::kInvalidArgument,
        "metadata may not be empty: the cache would delete the entry at its next start");
  }
  if (metadata->size() > format::kTextBytes) {
    return MakeError(ErrorKind::kInvalidArgument, "metadata is longer than " +
                                                      std::to_string(format::kTextBytes) +
                                                      " bytes; make it shorter");
  }
  return {};
}

Error Store(CacheSession& session, const PutOptions& options, const std::string& metadata,
            Input& input) {
  const std::uint64_t size = input.KnownSize() + metadata.size();
  if (size > session.Limits().maxEntrySize) {
    return MakeError(ErrorKind::kRefused,
                     std::to_string(size) +
                         " bytes with metadata are too large for the limit of one entry, " +
                         std::to_string(session.Limits().maxEntrySize));
  }
  Error error;
  const auto writer = session.Store(options.url, &error);
  if (writer == nullptr) return error;
  std::vector<char> piece(kPieceBytes);
  for (;;) {
    std::size_t bytes = 0;
    if (error = input.Read(piece.data(), piece.size(), &bytes); error) return error;
    if (bytes == 0) return writer->Commit(metadata);
    if (error = writer->Write(piece.data(), bytes); error) return error;
  }
}

Error WriteOut(const GetOptions& options, session::FetchedEntry entry) {
  Error error;
  const auto output = Output::Open(options.output, &error);
  if (output == nullptr) return error;
  if (options.metadata) {
    error = output->Write(entry.metadata.data(), entry.metadata.size());
  } else {
    Input content(std::move(entry.content), entry.path);
    error = output->WriteAllOf(content);
  }
  return error ? error : output->Commit();
}

// From the session or, where it cannot be had, without it.
std::optional<session::FetchedEntry> Find(Context& context, const std::string& url, Error* error) {
  CacheSession* session = context.Session(Context::Purpose::kUse, error);
  if (session != nullptr) return session->Fetch(url, error);
  if (!LeavesReading(*error)) return std::nullopt;
  context.Tell(error->Message() + "; read without the session, so this does not count as a use");
  const auto reader = OpenReader(context, error);
  return reader != nullptr ? reader->Fetch(url, error) : std::nullopt;
}

}  // namespace

ExitStatus Put(Context& context, const PutOptions& options) {
  std::string metadata;
  if (Error error = MetadataFor(options, &metadata)) return context.Fail(error);
  Error error;
  const auto input = Input::Open(options.file, &error);
  if (input == nullptr) return context.Fail(error);
  CacheSession* session = context.Session(Context::Purpose::kStore, &error);
  if (session == nullptr) return context.Fail(error);
  error = Store(*session, options, metadata, *input);
  return error ? context.Fail(error) : ExitStatus::kDone;
}

ExitStatus Get(Context& context, const GetOptions& options) {
  Error error;
  auto entry = Find(context, options.url, &error);
  if (entry) error = WriteOut(options, std::move(*entry));
  return error ? context.Fail(error) : ExitStatus::kDone;
}

ExitStatus Remove(Context& context, const std::string& url) {
  Error error;
  CacheSession* session = context.Session(Context::Purpose::kUse, &error);
  if (session != nullptr) error = session->Remove(url);
  return error ? context.Fail(error) : ExitStatus::kDone;
}

}  // namespace ox::tools

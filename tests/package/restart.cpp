// Stores with one session and fetches with the next, beside headers of its own whose names are used
// inside the library too: restart DIRECTORY
#include <unistd.h>

#include <cstdio>
#include <string>

#include "cache/cache_value.h"
#include "every_header.h"
#include "host/held_directory.h"
#include "module/module.h"
#include "string/string.h"

using namespace ox::session;
using ox::Error;

namespace {

constexpr CacheValue kPage = "http://example/page";
constexpr Module kModule = OX_MODULE_PATH;
constexpr char kBody[] = "kept over a restart";
constexpr char kMetadata[] = "text/plain";

int Fail(const Error& error) {
  return std::fprintf(stderr, "%s\n", error.Message().c_str()), 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const HeldDirectory directory = argv[1];
  SessionOptions options;
  options.directory = directory;
  options.modulePath = kModule;
  Error error;
  auto session = CacheSession::Open(options, &error);
  if (!session) return Fail(error);
  auto writer = session->Store(kPage, &error);
  if (!writer) return Fail(error);
  if ((error = writer->Write(kBody, sizeof kBody - 1)) || (error = writer->Commit(kMetadata))) {
    return Fail(error);
  }
  writer.reset();
  session.reset();

  session = CacheSession::Open(options, &error);
  if (!session) return Fail(error);
  const auto found = session->Fetch(kPage, &error);
  if (!found) return Fail(error);
  String text{};
  const ssize_t bytes = read(found->content.Get(), text, sizeof text);
  const bool isSame = bytes == sizeof kBody - 1 && std::string(text) == kBody;
  return isSame && found->metadata == kMetadata ? 0 : 1;
}

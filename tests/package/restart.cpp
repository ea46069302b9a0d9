// Stores with one session and fetches with the next: restart DIRECTORY
#include <unistd.h>

#include <cstdio>
#include <string>

#include <oxfilecache/session.h>

using namespace ox::session;
using ox::Error;

namespace {

constexpr char kUrl[] = "http://example/page";
constexpr char kBody[] = "kept over a restart";
constexpr char kMetadata[] = "text/plain";

int Fail(const Error& error) {
  return std::fprintf(stderr, "%s\n", error.Message().c_str()), 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  SessionOptions options;
  options.directory = argv[1];
  options.modulePath = OX_MODULE_PATH;
  Error error;
  auto session = CacheSession::Open(options, &error);
  if (!session) return Fail(error);
  auto writer = session->Store(kUrl, &error);
  if (!writer) return Fail(error);
  if ((error = writer->Write(kBody, sizeof kBody - 1)) || (error = writer->Commit(kMetadata))) {
    return Fail(error);
  }
  writer.reset();
  session.reset();

  session = CacheSession::Open(options, &error);
  if (!session) return Fail(error);
  const auto found = session->Fetch(kUrl, &error);
  if (!found) return Fail(error);
  char text[sizeof kBody] = {};
  const ssize_t bytes = read(found->content.Get(), text, sizeof text);
  const bool isSame = bytes == sizeof kBody - 1 && std::string(text) == kBody;
  return isSame && found->metadata == kMetadata ? 0 : 1;
}

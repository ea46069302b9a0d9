// Writes what a URL leads to, through a cache.
//   http_get DIRECTORY URL
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include <oxfilecache/http.h>

int main(int argc, char** argv) {
  if (argc != 3) return std::fputs("usage: http_get DIRECTORY URL\n", stderr), 2;
  ox::session::SessionOptions options;
  options.directory = argv[1];
  options.limits.maxSize = 64 * 1024 * 1024;
  options.limits.maxEntries = 1000;
  ox::Error error;
  auto session = ox::session::CacheSession::Open(options, &error);
  auto client = session ? ox::http::Client::Open(*session, {}, &error) : nullptr;
  ox::http::RequestOptions request;
  request.staleIfError = true;  // an old copy is better than none
  auto answer = client ? client->Get(argv[2], request, &error) : std::nullopt;
  if (!answer) return std::fprintf(stderr, "%s\n", error.Message().c_str()), 3;

  // The reason says why it is not stored, or stale.
  std::fprintf(stderr, "%d, %llu bytes%s%s\n", answer->status,
               static_cast<unsigned long long>(answer->size), answer->reason ? ", " : "",
               answer->reason.Message().c_str());
  char piece[4096];
  for (std::uint64_t left = answer->size; left > 0;) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, sizeof piece));
    const ssize_t bytes = read(answer->content.Get(), piece, wanted);
    if (bytes <= 0) return std::fputs("the content cannot be read\n", stderr), 3;
    std::fwrite(piece, 1, static_cast<std::size_t>(bytes), stdout);
    left -= static_cast<std::uint64_t>(bytes);
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) return std::perror("http_get"), 3;
  return answer->status / 100 == 2 ? 0 : 1;
}

// A session in a program with several threads: four workers share one CacheSession, and each stores
// and fetches the same pages as the others.
//   session_threads LIBRARY DIRECTORY
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <oxfilecache/session.h>

using namespace ox::session;
using ox::Error;
using ox::ErrorKind;
using ox::MakeError;
using ox::SystemError;

namespace {

constexpr int kWorkers = 4;
constexpr int kPages = 25;
constexpr std::size_t kPageBytes = 1000;

// A writer belongs to the thread that asked for it.
Error StorePage(CacheSession& session, const std::string& url, const std::string& body) {
  Error error;
  const auto writer = session.Store(url, &error);
  if (!writer) return error;
  if (error = writer->Write(body.data(), body.size()); error) return error;
  return writer->Commit("text/plain");
}

// So does what a fetch returns; it stays readable whatever the others store meanwhile.
Error FetchPage(CacheSession& session, const std::string& url, std::string* body) {
  Error error;
  const auto found = session.Fetch(url, &error);
  if (!found) return error;
  body->resize(static_cast<std::size_t>(found->size));
  const ssize_t bytes = read(found->content.Get(), body->data(), body->size());
  return bytes < 0 ? SystemError("cannot read", found->path) : Error{};
}

Error Work(CacheSession& session, char letter) {
  for (int page = 0; page < kPages; ++page) {
    const std::string url = "http://example/" + std::to_string(page);
    if (Error error = StorePage(session, url, std::string(kPageBytes, letter))) return error;
    std::string body;
    if (Error error = FetchPage(session, url, &body)) return error;
    // Perhaps another worker's page by now, but always a whole one.
    if (body != std::string(kPageBytes, body[0]) || body[0] < 'a' || body[0] >= 'a' + kWorkers) {
      return MakeError(ErrorKind::kInputOutput, "a damaged page under " + url);
    }
  }
  return {};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return std::fputs("usage: session_threads LIBRARY DIRECTORY\n", stderr), 2;
  // Without limits a cache admits nothing.
  std::ofstream(std::string(argv[2]) + "/file-cache.conf")
      << "MAX_CACHE_SIZE=1000000\nMAX_CACHE_ENTRIES=100\nMAX_CACHE_ENTRY_SIZE=10000\n";
  SessionOptions options;
  options.modulePath = argv[1];
  options.directory = argv[2];
  Error error;
  const auto session = CacheSession::Open(options, &error);
  if (!session) return std::fprintf(stderr, "%s\n", error.Message().c_str()), 3;

  std::atomic<int> failures{0};
  std::vector<std::thread> workers;
  for (int number = 0; number < kWorkers; ++number) {
    workers.emplace_back([&, letter = static_cast<char>('a' + number)] {
      const Error failure = Work(*session, letter);
      if (!failure) return;
      ++failures;
      std::fprintf(stderr, "worker %c: %s\n", letter, failure.Message().c_str());
    });
  }
  for (std::thread& worker : workers)
    worker.join();

  const int entries = static_cast<int>(session->Statistics().entries);
  std::printf("%d workers, %d entries\n", kWorkers, entries);
  return failures == 0 && entries == kPages ? 0 : 1;
}

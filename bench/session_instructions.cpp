// The same as instructions.cpp for a session: opens one over a prepared cache and does one
// operation COUNT times.
//   session_instructions OPERATION COUNT DIRECTORY MODULE
// Operations: prepare (makes a cache of COUNT entries), store, replace, and a fetch of an entry's
// open files: known (fetched before), never, once (the first time after a start) and always.
#include <cstdio>
#include <cstdlib>
#include <string>

#include <oxfilecache/session.h>

namespace {

using ox::session::CacheSession;
using ox::session::Check;

constexpr int kFirstNew = 10000;

std::string Url(int i) {
  return "http://device.example.com/applications/player/resources/images/" +
         std::to_string(100000 + i);
}

bool Store(CacheSession& session, int i) {
  static const std::string content(4096, 'c');
  static const std::string metadata(200, 'm');
  ox::Error error;
  const auto writer = session.Store(Url(i), &error);
  return writer != nullptr && !writer->Write(content.data(), content.size()) &&
         !writer->Commit(metadata);
}

bool Fetch(CacheSession& session, int i) {
  ox::Error error;
  return session.Fetch(Url(i), &error).has_value();
}

bool Work(CacheSession& session, const std::string& operation, int count) {
  for (int i = 0; i < count; ++i) {
    bool isDone = false;
    if (operation == "prepare" || operation == "replace") {
      isDone = Store(session, i);
    } else if (operation == "store") {
      isDone = Store(session, kFirstNew + i);
    } else if (operation == "known") {
      isDone = Fetch(session, 0);
    } else {
      // Spread over the list, as lookups in no particular order are.
      isDone = Fetch(session, i * 37 % 200);
    }
    if (!isDone) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fputs("usage: session_instructions OPERATION COUNT DIRECTORY MODULE\n", stderr);
    return 2;
  }
  const std::string operation = argv[1];
  ox::session::SessionOptions options;
  options.directory = argv[3];
  options.modulePath = argv[4];
  options.check = operation == "never"    ? Check::kNever
                  : operation == "always" ? Check::kAlways
                                          : Check::kOnce;
  ox::Error error;
  const auto session = CacheSession::Open(options, &error);
  const bool isDone = session != nullptr && Work(*session, operation, std::atoi(argv[2]));
  return isDone ? 0 : 1;
}

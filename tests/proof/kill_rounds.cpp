// A process that stores, replaces, removes and fetches is killed at a random moment, again and
// again, on the machine's own disk. After each kill every entry is whole, and is the last one that
// was reported or the one being committed.
//
//   kill_rounds MODULE ROUNDS [DIRECTORY]
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "tests/support/ledger.h"

namespace {

using ox::Error;
using ox::session::CacheSession;
using ox::session::Durability;
using ox::session::SessionOptions;
using ox::testing::kAbsent;

constexpr int kUrls = 8;

// Shared with the process that is killed. One step of a URL is under way while `begun` differs from
// `done`.
struct Progress {
  volatile int begun[kUrls];
  volatile int done[kUrls];
  volatile int operations;
};

std::string UrlOf(int number) {
  return "http://host/" + std::to_string(number);
}

[[noreturn]] void Work(const SessionOptions& options, unsigned seed, Progress* progress) {
  std::mt19937 random(seed);
  Error error;
  const auto session = CacheSession::Open(options, &error);
  if (session == nullptr) {
    std::fprintf(stderr, "%s\n", error.Message().c_str());
    _exit(1);
  }
  for (int version = progress->operations + 1;; ++version) {
    const int number = static_cast<int>(random() % kUrls);
    const std::string url = UrlOf(number);
    ox::testing::Ledger ignored;
    switch (random() % 8) {
      case 0:
        progress->begun[number] = kAbsent;
        static_cast<void>(session->Remove(url));
        progress->done[number] = kAbsent;
        break;
      case 1:
        ox::testing::FetchVersion(*session, url, &error);
        break;
      case 2: {
        const auto dropped = session->Store(url, &error);
        if (dropped != nullptr) static_cast<void>(dropped->Write("dropped", 7));
        break;
      }
      default:
        progress->begun[number] = version;
        if (!ox::testing::Store(*session, url, version, &ignored)) _exit(1);
        progress->done[number] = version;
    }
    progress->operations = version;
  }
}

bool CheckAll(const SessionOptions& options, Progress* progress) {
  Error error;
  const auto session = CacheSession::Open(options, &error);
  if (session == nullptr) {
    std::fprintf(stderr, "%s\n", error.Message().c_str());
    return false;
  }
  for (int number = 0; number < kUrls; ++number) {
    const int found = ox::testing::FetchVersion(*session, UrlOf(number), &error);
    if (found != progress->done[number] && found != progress->begun[number]) {
      std::fprintf(stderr, "%s: version %d, expected %d or %d: %s\n", UrlOf(number).c_str(), found,
                   progress->done[number], progress->begun[number], error.Message().c_str());
      return false;
    }
    progress->begun[number] = found;
    progress->done[number] = found;
  }
  // Configuration, lock, and pairs.
  const auto files = std::filesystem::directory_iterator(options.directory);
  const auto count = std::distance(begin(files), end(files));
  const auto expected = 2 + 2 * static_cast<std::ptrdiff_t>(session->Statistics().entries);
  if (count != expected) std::fprintf(stderr, "%td files, expected %td\n", count, expected);
  return count == expected;
}

void SleepMicroseconds(long microseconds) {
  const timespec wait{microseconds / 1000000, microseconds % 1000000 * 1000};
  nanosleep(&wait, nullptr);
}

// How long a new process takes for its start and a few operations, in microseconds.
long MeasureStart(const SessionOptions& options, Progress* progress) {
  constexpr int kOperations = 10;
  constexpr long kStep = 500;
  const pid_t child = fork();
  if (child == 0) Work(options, 0, progress);
  long waited = 0;
  for (; progress->operations < kOperations && waited < 30000000; waited += kStep)
    SleepMicroseconds(kStep);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  return waited;
}

bool Round(const SessionOptions& options, unsigned seed, long longest, Progress* progress) {
  const pid_t child = fork();
  if (child == 0) Work(options, seed, progress);
  std::mt19937 random(seed);
  SleepMicroseconds(static_cast<long>(random() % static_cast<unsigned long>(longest)));
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status)) return false;  // it never ends by itself
  return CheckAll(options, progress);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  SessionOptions options;
  options.modulePath = argv[1];
  const unsigned rounds = static_cast<unsigned>(std::atoi(argv[2]));
  std::string directory = std::string(argc > 3 ? argv[3] : "/var/tmp") + "/ox-kill-XXXXXX";
  if (mkdtemp(directory.data()) == nullptr) return 2;
  options.directory = directory;
  options.durability = Durability::kPower;
  std::ofstream(directory + "/file-cache.conf") << "MAX_CACHE_ENTRIES=20\n";

  void* shared =
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto* progress = static_cast<Progress*>(shared);
  const long longest = 2 * MeasureStart(options, progress);
  for (unsigned round = 1; round <= rounds; ++round) {
    options.durability = round % 2 == 0 ? Durability::kPower : Durability::kProcess;
    if (Round(options, round, longest, progress)) continue;
    std::fprintf(stderr, "failed in round %u, files kept in %s\n", round, directory.c_str());
    return 1;
  }
  std::filesystem::remove_all(directory);
  std::printf("%u kills, %d operations before them\n", rounds, progress->operations);
  // Kills that never met a running operation would prove nothing.
  return progress->operations > static_cast<int>(rounds) ? 0 : 1;
}

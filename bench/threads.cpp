// oxbench_threads: how many fetches a second one thread makes and how many two make together,
// beside the same for the system calls of a fetch alone. By turns, in one process. Prints JSON.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/files.h"
#include "bench/workload.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/format.h>
#include <oxfilecache/session.h>

namespace {

using namespace ox;
using namespace ox::bench;

constexpr std::size_t kEntries = 200;
constexpr std::size_t kContentBytes = 4096;

using Fetch = std::function<void(std::size_t index)>;

double PerSecond(int threads, const Fetch& fetch) {
  using Clock = std::chrono::steady_clock;
  std::atomic<bool> isOver{false};
  std::atomic<std::uint64_t> fetched{0};
  std::vector<std::thread> running;
  const Clock::time_point start = Clock::now();
  for (int thread = 0; thread < threads; ++thread) {
    running.emplace_back([&, thread] {
      std::uint64_t count = 0;
      for (std::size_t i = static_cast<std::size_t>(thread) * 97; !isOver; ++i, ++count)
        fetch(i % kEntries);
      fetched += count;
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  isOver = true;
  for (std::thread& thread : running)
    thread.join();
  return static_cast<double>(fetched) / std::chrono::duration<double>(Clock::now() - start).count();
}

double MedianGain(const Fetch& fetch) {
  constexpr int kRounds = 15;
  std::vector<double> gains;
  for (int round = 0; round < kRounds; ++round) {
    const double one = PerSecond(1, fetch);
    gains.push_back(PerSecond(2, fetch) / one);
  }
  std::nth_element(gains.begin(), gains.begin() + kRounds / 2, gains.end());
  return gains[kRounds / 2];
}

void Check(const Error& error) {
  if (error) throw std::runtime_error(error.Message());
}

void ReadWhole(int directory, const std::string& name) {
  char buffer[kContentBytes];
  struct stat status;
  const UniqueFd file(openat(directory, name.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 ||
      read(file.Get(), buffer, sizeof buffer) <= 0) {
    ThrowSystemError("read", name.c_str());
  }
}

nlohmann::json Measure(const std::string& directory) {
  session::SessionOptions options;
  options.directory = directory + "/cache";
  options.modulePath = OX_MODULE_PATH;
  options.limits.maxSize = 100000000;
  options.limits.maxEntrySize = 100000;
  options.limits.maxEntries = kEntries;
  Error error;
  const auto session = session::CacheSession::Open(options, &error);
  Check(error);
  const Workload workload(kContentBytes);
  std::vector<std::string> paths;
  for (std::size_t i = 0; i < kEntries; ++i) {
    Check(session->StoreWhole(workload.Url(i), workload.Content(i), workload.Metadata()));
    paths.push_back(session->Fetch(workload.Url(i), &error)->path);
  }
  const UniqueFd held(open(options.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::size_t name = options.directory.size() + 1;
  const double calls = MedianGain([&](std::size_t i) {
    ReadWhole(held.Get(), paths[i].substr(name) + format::kMetadataSuffix);
    ReadWhole(held.Get(), paths[i].substr(name));
  });
  const double fetches = MedianGain([&](std::size_t i) {
    Error failure;
    const auto found = session->Fetch(workload.Url(i), &failure);
    char buffer[kContentBytes];
    if (!found || read(found->content.Get(), buffer, sizeof buffer) <= 0) Check(failure);
  });
  return {{"system_calls", calls},
          {"fetches", fetches},
          {"processors", std::thread::hardware_concurrency()}};
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("What a second thread adds to the fetches of the first.");
  std::string directory;
  app.add_option("--directory", directory, "an existing, empty directory to work in")->required();
  CLI11_PARSE(app, argc, argv);
  try {
    std::cout << Measure(directory).dump(1) << "\n";
  } catch (const std::exception& error) {
    std::cerr << "oxbench_threads: " << error.what() << "\n";
    return 1;
  }
}

// The program that the driver starts inside the device.
#include "scripts/device/device.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>

namespace ox::device {

void Tell(const std::string& line) {
  const std::string whole = line + "\n";
  if (write(STDOUT_FILENO, whole.data(), whole.size()) < 0) std::exit(1);
}

session::Durability DurabilityOf(const std::string& name) {
  if (name == "none") return session::Durability::kNone;
  if (name == "process") return session::Durability::kProcess;
  if (name == "power") return session::Durability::kPower;
  Tell("! no durability is called " + name);
  std::exit(2);
}

std::unique_ptr<session::CacheSession> OpenSession(const std::string& directory,
                                                   session::Durability durability) {
  session::SessionOptions options;
  options.directory = directory;
  options.durability = durability;
  Error error;
  auto session = session::CacheSession::Open(options, &error);
  if (session != nullptr) return session;
  Tell("! " + error.Message());
  std::exit(1);
}

void Configure(const std::string& directory, std::uint64_t bytes, int entries, int entryBytes) {
  std::ofstream file(directory + "/file-cache.conf");
  file << "MAX_CACHE_SIZE=" << bytes << "\nMAX_CACHE_ENTRIES=" << entries
       << "\nMAX_CACHE_ENTRY_SIZE=" << entryBytes << "\n";
}

std::int64_t Milliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace ox::device

int main(int count, char** words) {
  using ox::device::Arguments;
  const std::map<std::string, int (*)(const Arguments&)> commands{
      {"check", ox::device::Check},
      {"load", ox::device::Load},
      {"wear", ox::device::Wear},
      {"memory", ox::device::Memory},
  };
  const auto command = count < 2 ? commands.end() : commands.find(words[1]);
  if (command == commands.end()) {
    ox::device::Tell("! check, load, wear or memory");
    return 2;
  }
  return command->second(Arguments(words + 2, words + count));
}

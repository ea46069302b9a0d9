// One kind of operation, again and again, between two looks at the device's counters.
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "scripts/device/device.h"
#include "scripts/device/stores.h"

namespace ox::device {
namespace {

// Bytes without a pattern that a file system could make smaller; others in each round.
std::string NoiseOf(std::size_t bytes, unsigned round) {
  std::string noise(bytes, '\0');
  unsigned seed = round * 7919U + 1;
  for (char& byte : noise) {
    seed = seed * 1664525U + 1013904223U;
    byte = static_cast<char>(seed >> 24);
  }
  return noise;
}

void Look(const std::string& counters) {
  sync();
  if (std::system(counters.c_str()) != 0) Tell("! the counters cannot be read");
}

}  // namespace

int Wear(const Arguments& arguments) {
  const std::string& operation = arguments.at(2);
  const int entries = std::stoi(arguments.at(3));
  const auto bytes = static_cast<std::size_t>(std::stoi(arguments.at(4)));
  const std::string& round = arguments.at(5);
  const std::string metadata = "Content-Type: text/html; round " + round + std::string(60, '.');
  std::string content = NoiseOf(bytes, static_cast<unsigned>(std::stoi(round)));

  if (operation == "restart") Look(arguments.at(6));
  auto store = OpenStore(arguments.at(0), arguments.at(1));
  if (operation != "restart") Look(arguments.at(6));
  int found = 0;
  for (int i = 0; i < entries; ++i) {
    const std::string url = "http://device/wear/" + std::to_string(bytes) + "-" + std::to_string(i);
    content[0] = static_cast<char>(i);
    if (operation == "put") store->Put(url, content, metadata);
    if (operation == "renew") store->Renew(url, metadata);
    if (operation == "hit") found += store->Get(url) ? 1 : 0;
    if (operation == "look") found += store->Look(url) ? 1 : 0;
    if (operation == "miss") found += store->Get(url + "-none") ? 1 : 0;
  }
  store.reset();
  Look(arguments.at(6));
  Tell("found " + std::to_string(found));
  return 0;
}

}  // namespace ox::device

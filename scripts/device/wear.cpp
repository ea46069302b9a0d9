// One kind of operation, again and again; the driver compares the device's counters around it.
#include <unistd.h>

#include <memory>

#include "scripts/device/device.h"
#include "scripts/device/stores.h"

namespace ox::device {

// The contents of a round differ from those of the round before.
int Wear(const Arguments& arguments) {
  const std::string& operation = arguments.at(2);
  const int entries = std::stoi(arguments.at(3));
  const auto bytes = static_cast<std::size_t>(std::stoi(arguments.at(4)));
  const std::string& round = arguments.at(5);
  const auto store = OpenStore(arguments.at(0), arguments.at(1));
  const std::string metadata = "Content-Type: text/html; round " + round + std::string(60, '.');
  std::string content(bytes, 'c');
  // No pattern that a file system could make smaller.
  unsigned seed = static_cast<unsigned>(std::stoi(round)) * 7919U + 1;
  for (char& byte : content) {
    seed = seed * 1664525U + 1013904223U;
    byte = static_cast<char>(seed >> 24);
  }
  int found = 0;
  for (int i = 0; i < entries; ++i) {
    const std::string url = "http://device/wear/" + std::to_string(bytes) + "-" + std::to_string(i);
    content[0] = static_cast<char>(i);
    if (operation == "put") store->Put(url, content, metadata);
    if (operation == "renew") store->Renew(url, metadata);
    if (operation == "hit" || operation == "stat") found += store->Get(url) ? 1 : 0;
    if (operation == "miss") found += store->Get(url + "-none") ? 1 : 0;
  }
  sync();
  Tell("found " + std::to_string(found));
  return 0;
}

}  // namespace ox::device

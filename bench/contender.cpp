#include "bench/contender.h"

#include <map>
#include <stdexcept>

namespace ox::bench {
namespace {

std::map<std::string, MakeContender>& Registry() {
  static std::map<std::string, MakeContender> registry;
  return registry;
}

}  // namespace

Registration::Registration(const char* name, MakeContender make) {
  Registry()[name] = std::move(make);
}

std::vector<std::string> ContenderNames() {
  std::vector<std::string> names;
  for (const auto& entry : Registry())
    names.push_back(entry.first);
  return names;
}

std::unique_ptr<Contender> Make(const std::string& name, const Setting& setting) {
  const auto found = Registry().find(name);
  if (found == Registry().end()) throw std::runtime_error("no contender of the name " + name);
  return found->second(setting);
}

}  // namespace ox::bench

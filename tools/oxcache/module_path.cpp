#include "tools/oxcache/module_path.h"

#include <unistd.h>

namespace ox::tools {
namespace {

bool IsReadable(const std::string& path) {
  return access(path.c_str(), R_OK) == 0;
}

}  // namespace

std::string TypedModulePath(const std::string& typed) {
  if (typed.find('/') != std::string::npos || !IsReadable(typed)) return typed;
  return "./" + typed;
}

}  // namespace ox::tools

#include "tools/oxcache/fetch_target.h"

#include <algorithm>
#include <set>

namespace ox::tools {
namespace {

// The last part of the URL's path as a file name.
std::string FileName(const std::string& url) {
  std::string path = url.substr(0, url.find_first_of("?#"));
  // The server's name stands behind up to three slashes, perhaps with a password before it.
  const std::size_t scheme = path.find(":/");
  const std::size_t host = path.find_first_not_of('/', scheme == path.npos ? 0 : scheme + 1);
  const std::size_t start = path.find('/', host);
  path = host == path.npos || start == path.npos ? "" : path.substr(path.rfind('/') + 1);
  std::replace_if(
      path.begin(), path.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '_');
  return path.empty() || path == "." || path == ".." ? "index" : path;
}

// Each URL gets a file of its own: a name that is taken gets a number.
std::string UniqueName(const std::string& name, std::set<std::string>* taken) {
  std::string unique = name;
  for (unsigned number = 2; !taken->insert(unique).second; ++number)
    unique = name + "-" + std::to_string(number);
  return unique;
}

}  // namespace

std::vector<FetchTarget> TargetsOf(const FetchOptions& options, bool json) {
  std::vector<FetchTarget> targets;
  if (options.urls.size() == 1) {
    const char* otherwise = json ? "" : "-";
    targets.push_back({options.urls[0], options.output.empty() ? otherwise : options.output});
    return targets;
  }
  std::set<std::string> taken;
  for (const std::string& url : options.urls) {
    const std::string name = UniqueName(FileName(url), &taken);
    targets.push_back({url, options.output.empty() ? "" : options.output + "/" + name});
  }
  return targets;
}

}  // namespace ox::tools

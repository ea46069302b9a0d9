// What a listing tells of an entry.
#ifndef OXFILECACHE_LISTED_ENTRY_H_
#define OXFILECACHE_LISTED_ENTRY_H_

#include <cstdint>
#include <ctime>
#include <string>

namespace ox::session {

struct ListedEntry {
  std::string name;  // of the content file, without the directory
  // Empty where it is not known: see Check for the entries that keep none. A long one that the file
  // system has no room for is not known either.
  std::string url;
  std::uint64_t contentBytes = 0;
  std::uint64_t metadataBytes = 0;
  timespec used{};  // last use, as far as sessions have noted it (SessionOptions::touchInterval)
};

}  // namespace ox::session

#endif

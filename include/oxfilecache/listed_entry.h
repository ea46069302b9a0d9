// What a listing tells of an entry.
#ifndef OXFILECACHE_LISTED_ENTRY_H_
#define OXFILECACHE_LISTED_ENTRY_H_

#include <cstdint>
#include <ctime>
#include <string>

namespace ox::session {

// An entry as it was when the listing looked at it. A plain value: it holds no file open, and the
// entry may be gone since.
struct ListedEntry {
  // Empty where it is not known: the entry has no seal (see Check), or it had no room for the URL.
  std::string url;
  std::string name;  // of the content file, without the directory
  // Of the metadata's file. A commit that is not finished, which a reader may see, has another one.
  std::string metadataName;
  std::uint64_t contentBytes = 0;   // length of the content file
  std::uint64_t metadataBytes = 0;  // length of the metadata's file
  timespec used{};  // last use, as far as sessions have noted it (SessionOptions::touchInterval)
};

}  // namespace ox::session

#endif

// The entries of a cache directory as a reader lists them.
#ifndef OX_SESSION_ENTRY_LISTING_H_
#define OX_SESSION_ENTRY_LISTING_H_

#include <string>
#include <vector>

#include <oxfilecache/error.h>
#include <oxfilecache/reader.h>

namespace ox::internal {

// Least recently used first, those of unfinished commits among them. None, and no error, where
// there is no such directory.
Error ListEntries(const std::string& directory, std::vector<session::ListedEntry>* list);

}  // namespace ox::internal

#endif

// The entries of a cache directory as they are listed to users.
#ifndef OX_SESSION_ENTRY_LISTING_H_
#define OX_SESSION_ENTRY_LISTING_H_

#include <string>
#include <vector>

#include "session/survey.h"
#include <oxfilecache/error.h>
#include <oxfilecache/listed_entry.h>

namespace ox::internal {

// The URL in the seal of a metadata file, empty when it has none.
std::string SealedUrl(const std::string& metadataPath);

session::ListedEntry ToListed(const std::string& directory, const SurveyedEntry& entry);

// Least recently used first, those of unfinished commits among them. None, and no error, where
// there is no such directory.
Error ListEntries(const std::string& directory, std::vector<session::ListedEntry>* list);

}  // namespace ox::internal

#endif

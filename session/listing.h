// Entries as they are listed to users.
#ifndef OX_SESSION_LISTING_H_
#define OX_SESSION_LISTING_H_

#include <string>

#include "session/survey.h"
#include <oxfilecache/listed_entry.h>

namespace ox::internal {

// The URL in the seal of a metadata file, empty when it has none.
std::string SealedUrl(const std::string& metadataPath);

session::ListedEntry ToListed(const std::string& directory, const SurveyedEntry& entry);

}  // namespace ox::internal

#endif

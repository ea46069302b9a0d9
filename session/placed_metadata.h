// The metadata file of a new entry, written under its own name at once: while there is no content
// it belongs to no entry, so renaming the content alone puts the entry in place.
#ifndef OX_SESSION_PLACED_METADATA_H_
#define OX_SESSION_PLACED_METADATA_H_

#include <functional>
#include <string>

#include "session/commit_files.h"
#include "session/disk_account.h"
#include <oxfilecache/error.h>

namespace ox::internal {

// Makes the metadata file of a commit under that path. What it leaves behind after an error the
// caller deletes.
using MetadataWriter = std::function<Error(const std::string& path)>;

// Deletes the file unless it became the entry's. Not locked: the session's mutex guards it.
class PlacedMetadata {
 public:
  // Both must outlive this.
  PlacedMetadata(const CommitFiles& files, DiskAccount& account)
      : files_(files), account_(account) {}
  ~PlacedMetadata();
  PlacedMetadata(const PlacedMetadata&) = delete;
  PlacedMetadata& operator=(const PlacedMetadata&) = delete;

  // For an entry whose content is not there: together they would pass for the entry. Staged after
  // all where somebody left metadata.
  Error Write(const MetadataWriter& write);
  // From here on it is staged: a restart would delete metadata without content, and a replacement
  // needs the old metadata in its place.
  Error MoveToStaged();
  void BecomeEntry() { isThere_ = false; }

  bool IsThere() const { return isThere_; }
  const std::string& Path() const { return isThere_ ? files_.metadata : files_.stagedMetadata; }

 private:
  const CommitFiles& files_;
  DiskAccount& account_;
  bool isThere_ = false;
};

}  // namespace ox::internal

#endif

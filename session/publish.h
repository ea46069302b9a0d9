// Turning staged files into an entry.
//
// A new entry: the metadata file is written, the manager lists the entry as pending, the staged
// content is renamed to the content file, and the manager commits the entry. The manager's own
// write of the metadata is dropped: the file is there. Metadata that had to be synchronised is
// staged, and renamed after the content.
//
// A replacement: the files are put in the place of the old ones under the entry that the manager
// has listed, and the manager reads the metadata again. Unless the durability is `none`, the staged
// metadata is renamed to the commit file before, so that a crash leaves either the old files or
// something to finish.
//
// A renewal: the staged metadata is renamed to the metadata file, and the manager reads it again.
//
// Where the manager does not follow, it is restarted, and its scan admits the pair.
#ifndef OX_SESSION_PUBLISH_H_
#define OX_SESSION_PUBLISH_H_

#include <cstdint>
#include <optional>
#include <string>

#include "session/placed_metadata.h"
#include "session/session_state.h"
#include <oxfilecache/string.h>

namespace ox::internal {

// How far publishing has come, also when memory ran out on the way.
struct PublishOutcome {
  // The content is in place and stays there: the new entry serves, or the next restart sees to it.
  // The writer's bytes are the entry's.
  bool isDecided = false;
  // The commit file was made and deleted again, but after a power cut it may be back: the staged
  // content must be there when a start finds it.
  bool mayBeDecided = false;
};

struct Publication {
  WriterShare& share;
  const std::string& url;
  const OxString& metadata;
  PublishOutcome& outcome;
  // Empty where the metadata is staged already.
  MetadataWriter writeMetadata = nullptr;
};

// The manager must be current, the content staged and, for durability `power`, with the metadata
// synchronised. Success means that the new entry is in place. After an error that leaves the
// outcome undecided the old entry serves (see Durability::kNone for the exception).
Error Publish(SessionState& state, const Publication& publication) OX_REQUIRES(state.mutex);

// Counts what the disk has given out to a staged metadata file beyond the room granted for its
// text: a seal may take a block of its own. Returns that; nothing where the file is not there.
std::optional<std::uint64_t> CountMetadataFile(SessionState& state, WriterShare& share,
                                               const std::string& path) OX_REQUIRES(state.mutex);

// The same for the staged metadata alone, in place of the metadata of the entry. kNotFound where it
// is gone.
Error PublishMetadata(SessionState& state, const Publication& publication) OX_REQUIRES(state.mutex);

}  // namespace ox::internal

#endif

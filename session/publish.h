// Turning staged files into an entry.
#ifndef OX_SESSION_PUBLISH_H_
#define OX_SESSION_PUBLISH_H_

#include "session/session_state.h"
#include <oxfilecache/string.h>

namespace ox::internal {

// How far publishing has come, also when memory ran out on the way.
struct PublishOutcome {
  // The new entry is in place, or the next restart puts it there. The writer's bytes are the
  // entry's.
  bool isDecided = false;
  // The commit file was made and taken back, and the medium may have kept the first and not the
  // second: the staged content must be there when a start finds the commit file.
  bool mayBeDecided = false;
};

struct Publication {
  WriterShare& share;
  const OxString& url;
  const OxString& metadata;
  PublishOutcome& outcome;
};

// The manager must be current and the metadata staged. Unless the outcome is decided, the cache
// is as before after an error. In the order of the steps:
//
//   1. Room is made. What is there of that URL is the last thing to be evicted.
//   2. The staged metadata is renamed to the commit file: from here on the new entry is decided,
//   and
//      a session that finds the commit file finishes the rest.
//   3. The manager removes the old entry and creates the new one.
//   4. The staged content is renamed to the content file, the commit file to the metadata file.
//   5. The manager commits the entry. Its own write of the metadata is dropped: the file is there.
//
// Where the manager refuses in 3 or 5 it is restarted, and its scan admits the pair.
Error Publish(SessionState& state, const Publication& publication) OX_REQUIRES(state.mutex);

}  // namespace ox::internal

#endif

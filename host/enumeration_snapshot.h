// What an enumeration has found in a directory, for the questions that its callback asks.
//
// The start-up scan asks of each content file whether it exists and, twice, how large it is. The
// enumeration has just found that out. Its snapshot answers, on the thread that enumerates, until
// that thread changes any file or the enumeration ends.
#ifndef OX_HOST_ENUMERATION_SNAPSHOT_H_
#define OX_HOST_ENUMERATION_SNAPSHOT_H_

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/directory.h"

namespace ox::internal {

class EnumerationSnapshot {
 public:
  // `prefix` is the directory's path and a "/". Both must outlive the snapshot.
  EnumerationSnapshot(const std::string& prefix, const std::vector<DirectoryEntry>& entries);
  ~EnumerationSnapshot();
  EnumerationSnapshot(const EnumerationSnapshot&) = delete;
  EnumerationSnapshot& operator=(const EnumerationSnapshot&) = delete;

  // The regular file of that path in this thread's innermost snapshot, null when it is not there.
  static const DirectoryEntry* Find(std::string_view path);
  // Empties all snapshots of this thread. To be called before any change to a file.
  static void DropAll();

 private:
  const std::string& prefix_;
  std::unordered_map<std::string_view, const DirectoryEntry*> files_;
  EnumerationSnapshot* outer_;  // of the enumeration that this one runs inside, or null
};

}  // namespace ox::internal

#endif

// What an enumeration has read of a directory, for the questions that its callback asks.
//
// The start-up scan asks of each content file whether it exists and, twice, how large it is; the
// enumeration has just looked. The snapshot answers on the enumerating thread until that thread
// changes any file, or the enumeration ends.
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
  // `prefix` is the directory's path with its separator. Both must outlive the snapshot.
  EnumerationSnapshot(const std::string& prefix, const std::vector<DirectoryEntry>& entries);
  ~EnumerationSnapshot();
  EnumerationSnapshot(const EnumerationSnapshot&) = delete;
  EnumerationSnapshot& operator=(const EnumerationSnapshot&) = delete;

  // The file of that path, null when no snapshot of this thread knows it.
  static const DirectoryEntry* Find(std::string_view path);
  // To be called before any change.
  static void Forget();

 private:
  const std::string& prefix_;
  std::unordered_map<std::string_view, const DirectoryEntry*> files_;
  EnumerationSnapshot* outer_;
};

}  // namespace ox::internal

#endif

// What a manager does to the files of its cache, told to whoever keeps account of it.
//
// Called from within the module, which has no unwind tables: nothing is thrown.
#ifndef OX_SESSION_MANAGER_LISTENER_H_
#define OX_SESSION_MANAGER_LISTENER_H_

#include <cstdint>

struct stat;

namespace ox::internal {

// How the manager's last attempt to read a metadata file went.
struct MetadataRead {
  int error = 0;              // errno when the file could not be opened or read
  std::uint64_t bytes = 0;    // size of the file when it was read
  std::int64_t modified = 0;  // nanoseconds since 1970
};

class ManagerListener {
 public:
  // Asked before each deletion.
  virtual bool MayDelete() const = 0;
  // It has tried to delete a file of an entry, which had this status; `error` is errno where that
  // failed. The metadata file of the content is still there.
  virtual void NoteContentDeletion(const char* path, const struct stat& status, bool isDeleted,
                                   int error) = 0;
  virtual void NoteMetadataDeletion(const struct stat& status, bool isDeleted, int error) = 0;
  virtual void NoteMetadataRead(const MetadataRead& read) = 0;
  // For want of memory it takes something for missing that is there.
  virtual void NoteOversight() = 0;

 protected:
  ~ManagerListener() = default;
};

}  // namespace ox::internal

#endif

// Whether a file system has a journal that keeps the order of changes, and brings all of it to the
// medium when a directory is synchronised. ext4 with data=ordered does, and f2fs, which writes a
// checkpoint then. There it is enough that what stands in a file is written out before the file is
// renamed, which waits for no journal: one synchronisation of the directory makes all of it last.
#ifndef OX_SESSION_JOURNAL_ORDER_H_
#define OX_SESSION_JOURNAL_ORDER_H_

#include <sys/types.h>

#include <string>

namespace ox::internal {

// Of the file system that holds the directory. False also where that cannot be told.
bool KeepsOrder(const std::string& directory);

// Whether sync_file_range(2) of this release of Linux, as uname(2) tells it, leaves no page out: so
// from 5.2 on.
bool WritesOutAll(const char* release);

// Where the kernel tells about ext4.
struct Ext4Paths {
  std::string devices = "/sys/dev/block";
  std::string fileSystems = "/proc/fs/ext4";
  std::string journals = "/proc/fs/jbd2";
};

// False where that device has no ext4.
bool Ext4KeepsOrder(dev_t device, const Ext4Paths& paths = {});

}  // namespace ox::internal

#endif

// The system calls of the host kit, on their way to the C library: counted, failed on demand, and
// written down. A test program that links this has its calls pass through here; nothing else of it
// changes while neither faults nor a journal are switched on. For one thread.
#ifndef OX_TESTS_SUPPORT_SYSTEM_CALLS_H_
#define OX_TESTS_SUPPORT_SYSTEM_CALLS_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/fault_driver.h"

namespace ox::testing {

// Fails every call that can fail, with the error that a dying disk gives. A failed write has
// written half.
extern FaultDriver callFaults;
// Interrupts the calls that signals interrupt, before their work or, where they read or write, in
// the middle of it. Whoever calls them must try again or go on.
extern FaultDriver callInterrupts;
// What is refused whenever it is asked for, as by a file system, a sandbox or a card that cannot do
// it: functions by their names, but for openings, which are "create", "list" for directories, or
// "open".
struct Refusal {
  std::set<std::string> calls;
  int error = 0;
  std::string name = {};  // openings of files alone whose names end so
};
extern Refusal refusal;
// Reads and writes do at most seven bytes.
extern bool areTransfersShort;
// Every directory is one of a file system whose journal keeps the order of changes.
extern bool hasOrderedJournal;
// The flags that every opening since it was set had in common.
extern int commonOpenFlags;
// Fails the allocations of C++ and of the kernel.
extern FaultDriver allocationFaults;

struct FileOperation {
  enum class Kind {
    kCreate,    // name, file
    kWrite,     // file, offset, bytes
    kEmpty,     // file
    kRename,    // name, newName
    kDelete,    // name
    kSetTime,   // file, time
    kSetSeal,   // file, bytes
    kWriteOut,  // file
    kSyncFile,  // file
    kSyncDirectory,
  };
  Kind kind;
  std::string name;
  std::string newName;
  int file = -1;
  std::size_t offset = 0;
  std::string bytes;
  std::int64_t time = 0;  // nanoseconds since 1970
};

// All changes to one flat directory. Files are numbered: those that were there first, in the order
// of their names, then the new ones.
class Journal {
 public:
  // Records from here on, until it is destroyed.
  explicit Journal(std::string directory);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  const std::vector<FileOperation>& Operations() const { return operations_; }
  // Directories of any place.
  const std::set<std::string>& SynchronisedDirectories() const { return synchronised_; }

  // For the calls.
  void Created(const std::string& path, int fd, bool isNew, bool isEmptied);
  void Written(int fd, const void* bytes, std::size_t count);
  void Emptied(int fd);
  void Renamed(const std::string& from, const std::string& to);
  void Linked(const std::string& from, const std::string& to);
  void Deleted(const std::string& path);
  void TimeSet(const std::string& path, std::int64_t time);
  void TimeSet(int fd, std::int64_t time);
  void SealSet(int fd, const void* bytes, std::size_t count);
  void WrittenOut(int fd);
  void Synchronised(int fd);
  void Closed(int fd) { open_.erase(fd); }

 private:
  struct OpenFile {
    int file;
    std::size_t position;
  };

  // The name within the directory, empty for a path elsewhere.
  std::string NameOf(const std::string& path) const;
  FileOperation& Add(FileOperation::Kind kind, int file);

  std::string directory_;
  std::string resolved_;  // without symbolic links
  std::set<std::string> synchronised_;
  std::vector<FileOperation> operations_;
  std::map<std::string, int> names_;
  std::map<int, OpenFile> open_;
  int files_ = 0;
};

}  // namespace ox::testing

#endif

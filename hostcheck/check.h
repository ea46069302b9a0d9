// One check, and what its code works with.
#ifndef OX_HOSTCHECK_CHECK_H_
#define OX_HOSTCHECK_CHECK_H_

#include <chrono>
#include <string>
#include <vector>

#include "hostcheck/isolation.h"
#include <oxfilecache/file_system.h>
#include <oxfilecache/host_check.h>
#include <oxfilecache/kernel.h>

namespace ox::hostcheck::internal {

using os::filesystem::File;

// What one check runs with, inside its child process.
class Run {
 public:
  // Takes the kernel from the source; throws when there is none.
  Run(KernelSource& source, std::string directory, std::chrono::milliseconds patience);

  IOxKernel& Kernel() const { return kernel_; }
  KernelSource& Source() const { return source_; }
  // Throws when the kernel has none.
  IFileSystem& FileSystem() const;

  // The default directory of the kernel; empty at first.
  const std::string& Directory() const { return directory_; }
  std::string Path(const std::string& name) const { return directory_ + "/" + name; }

  // How long to wait for a thread that is expected to come back.
  std::chrono::milliseconds Patience() const { return patience_; }

 private:
  KernelSource& source_;
  std::string directory_;
  std::chrono::milliseconds patience_;
  IOxKernel& kernel_;
};

struct Check {
  const char* name;
  // Names of earlier checks. When one of them did not pass, this one is skipped.
  std::vector<const char*> needs;
  // Returns when the host does as expected and throws otherwise.
  void (*run)(Run& run);
};

using Checks = std::vector<Check>;

// By subject, in the order in which they run.
Checks KernelChecks();
Checks KernelMemoryChecks();
Checks KernelStringChecks();
Checks MutexChecks();
Checks FileObjectChecks();
Checks FileContentChecks();
Checks FileSystemChecks();
Checks EnumerationChecks();

// Names that checks of other subjects need.
inline constexpr char kHandsOverKernel[] = "kernel: is handed over";
inline constexpr char kGivesFileSystem[] = "GetInterface: gives the file system for IFileSystem";
inline constexpr char kTakesNoSource[] = "Allocate: takes a null file name and line 0";
inline constexpr char kCreatesFiles[] = "CreateFile: gives objects";
inline constexpr char kOpensExisting[] = "Open 2: opens an existing file";
inline constexpr char kLeavesContent[] = "Open 2: leaves the content as it is";
inline constexpr char kCreatesMissing[] = "Open 0x35: makes a missing file";
inline constexpr char kEmptiesExisting[] = "Open 0x35: empties an existing file";
inline constexpr char kTellsExisting[] = "Exists: tells a file from a missing one";
inline constexpr char kDeletes[] = "Delete: removes the file";
inline constexpr char kKeepsObjectsApart[] = "CreateFile: gives objects with paths of their own";
inline constexpr char kCountsWritten[] = "Write: gives the number of bytes";
inline constexpr char kWritesBytes[] = "Write: puts the bytes into the file as they are";
inline constexpr char kCloseCompletes[] = "Close: leaves the file complete and the object usable";
inline constexpr char kReadsBytes[] = "Read: gives what the file holds, up to the count";
inline constexpr char kSizesUnopened[] = "GetSize: needs no Open";

// Throws with `why` unless `holds`.
void Expect(bool holds, const std::string& why);

// Between quotation marks, and shortened.
std::string Quote(const std::string& text);

// A file object of the host for the length of a scope, bound to a path.
class HostFile {
 public:
  HostFile(const Run& run, std::string path);
  ~HostFile();
  HostFile(const HostFile&) = delete;
  HostFile& operator=(const HostFile&) = delete;

  File* operator->() const { return file_; }

 private:
  IFileSystem& fileSystem_;
  // Kept here because the host need not copy it; the module keeps it as well.
  std::string path_;
  File* file_;
};

// These look at the disk without the host. The first two throw when they fail.
void PutOnDisk(const std::string& path, const std::string& content);
std::string ContentOnDisk(const std::string& path);
bool IsOnDisk(const std::string& path);

}  // namespace ox::hostcheck::internal

#endif

// The changes that a session makes to its directory, one function each. Interrupted calls are tried
// again; errno is left as the system call set it.
#ifndef OX_SESSION_DURABLE_IO_H_
#define OX_SESSION_DURABLE_IO_H_

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "session/file_at.h"
#include <oxfilecache/descriptor.h>

namespace ox::internal {

// Called before each change, also before the deletions that the module asks for. Tests set it, on
// one thread, to kill a process between any two changes.
using FileOperationHook = void (*)();
void SetFileOperationHook(FileOperationHook hook);
void AnnounceFileOperation();

// A new file for writing; not open when it exists already or cannot be made. Others may not read
// it, unless `mode`, that of open(2), says so.
UniqueFd CreateNewFile(const FileAt& file, unsigned int mode = 0600);

// False with errno; `written`, unless it is null, grows by what was written.
bool WriteAll(int fd, const void* data, std::size_t bytes, std::size_t* written = nullptr);

// Nanoseconds since 1970; sets the modification and the access time.
bool SetFileTime(const FileAt& file, std::int64_t time);
bool SetFileTime(int fd, std::int64_t time);

// Cuts the file to so many bytes, and synchronises it. False with errno.
bool ShortenFile(const std::string& path, std::uint64_t bytes);

// Lets the system begin to write the file to the medium. The journal's entry for it is then part of
// the one that the next SyncFile waits for, of whatever file: one less to write. A hint.
void BeginToWrite(int fd);
bool SyncFile(int fd);
bool SyncDirectory(const std::string& path);

// What has to be certain of a file before it is renamed.
enum class FileSync {
  kNone,
  kWrittenOut,  // synchronising the directory brings it to the medium (journal_order.h)
  kSynchronised,
};
// False with errno.
bool MakeCertain(int fd, FileSync sync);

bool RenameFile(const FileAt& from, const FileAt& to);
// A second name for the file; EEXIST when there is a file of that name.
bool LinkFile(const std::string& from, const std::string& to);

// True when there is no such file afterwards; otherwise false with errno.
bool DeleteFile(const FileAt& file);

// Of a regular file, without following a symbolic link; all 0 when there is none.
struct stat StatusOfFile(const FileAt& file);
inline std::uint64_t FileSize(const FileAt& file) {
  return static_cast<std::uint64_t>(StatusOfFile(file).st_size);
}
// Also true where the system does not say.
bool FileExists(const FileAt& file);
// True for a directory itself, not for a symbolic link to one.
bool IsOwnDirectory(const FileAt& file);

}  // namespace ox::internal

#endif

// File objects and the service that makes them, both implemented by the host.
//
// Threads: a file object is used by one thread at a time and never outlives the module operation
// that made it; several objects may be in use on several threads at once.
//
// Order in the tables and argument types are the binary contract, as for IOxKernel.
#ifndef OXFILECACHE_FILE_SYSTEM_H_
#define OXFILECACHE_FILE_SYSTEM_H_

#include <cstdint>

class OxString;

namespace ox::os::filesystem {

// One file or directory, named by a path. The module makes an object for each piece of work with
// IFileSystem::CreateFile, binds it with SetPath and gives it back with DestroyFile; the host owns
// the memory. Results say whether it worked; nothing may be thrown.
//
// Threads: an object is used by one thread at a time, several objects at once by several threads.
class File {
 public:
  // The modes that the module opens files with.
  static constexpr int kOpenRead = 2;      // an existing file, for reading
  static constexpr int kOpenWrite = 0x35;  // for writing; a missing file is made, another emptied

  // Called for each directory entry with the entry, true when it is a directory, and the context
  // given to EnumerateDirectory. True means go on.
  using EnumerateCallback = bool (*)(File& entry, bool isDirectory, void* context);

  // Binds the object to a UTF-8 path. 0 on failure. The module keeps the text alive until it binds
  // another path or destroys the object. An object may be bound again to another path.
  virtual int SetPath(const char* utf8Path) = 0;

  // Nonzero on success.
  virtual int Open(int mode) = 0;

  // Closes what Open opened. Not called after every Open: IFileSystem::DestroyFile must close too.
  virtual void Close() = 0;

  // Deletes the file at the bound path; nonzero on success. `flags` is always 0.
  virtual int Delete(int flags) = 0;

  // Nonzero when the bound path exists. Called without Open.
  virtual int Exists() = 0;

  // Fills `out` with the object's full path. For an enumerated file that is the path that
  // EnumerateDirectory was bound to, "/", and the name, byte for byte: entries found by a scan are
  // compared as text with paths built the same way.
  virtual void GetPath(OxString& out) = 0;

  // Size in bytes of the file at the bound path, 0 when there is none. Called without Open.
  virtual std::uint64_t GetSize() = 0;

  // Reads at most `count` bytes from the current position; the number read, 0 at the end or on an
  // error. The module looks at the low 32 bits of the number: where these are more than `count`, it
  // takes the number for 0.
  virtual std::uint64_t Read(std::uint64_t count, void* destination) = 0;

  // Writes `count` bytes; the number written. Anything else than `count` is a failed write.
  virtual std::uint64_t Write(std::uint64_t count, const void* source) = 0;

  // Calls `callback` once for each entry of the bound directory, without descending. The callback
  // deletes files of that directory and makes and destroys other file objects; the entries passed
  // to it stay the host's. `flags` is always 0; the result is ignored.
  virtual int EnumerateDirectory(EnumerateCallback callback, void* context, int flags) = 0;

 protected:
  ~File() = default;
};

}  // namespace ox::os::filesystem

// Makes file objects and names the directory. The host implements it, owns it and hands it out
// under the name "IFileSystem" (IOxKernel::GetInterface). Nothing may be thrown.
//
// Threads: every operation from any thread, also several at once.
class IFileSystem {
 public:
  // A new object bound to no path, null when none can be made. A null while a manager starts makes
  // CreateCacheManager return null.
  virtual ox::os::filesystem::File* CreateFile() = 0;

  // Releases an object from CreateFile, closing it first when it is open. Null does nothing: the
  // module hands back a null from CreateFile as it came.
  virtual void DestroyFile(ox::os::filesystem::File* file) = 0;

  // Fills `out` with the directory that holds "file-cache.conf" and, unless that file names
  // another, the cache. Nonzero on success; on failure the module reads no configuration.
  virtual int GetDefaultDirectory(OxString& out) = 0;

 protected:
  ~IFileSystem() = default;
};

#endif

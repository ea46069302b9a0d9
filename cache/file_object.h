// A host file object for the length of a scope, and the one way files are read.
#ifndef OX_CACHE_FILE_OBJECT_H_
#define OX_CACHE_FILE_OBJECT_H_

#include <cstddef>
#include <cstdint>

#include "cache/module_services.h"
#include <oxfilecache/format.h>

namespace ox::core::cache {

// A new file object of the host, or null, which is noted in the services.
os::filesystem::File* MakeFile();

class FileObject {
 public:
  FileObject() : file_(MakeFile()) {}
  // A null is handed back as it came: hosts that log see every CreateFile answered.
  ~FileObject() { services.fileSystem->DestroyFile(file_); }
  FileObject(const FileObject&) = delete;
  FileObject& operator=(const FileObject&) = delete;

  bool IsNull() const { return file_ == nullptr; }
  os::filesystem::File* operator->() const { return file_; }
  os::filesystem::File& operator*() const { return *file_; }

 private:
  os::filesystem::File* file_;
};

// The start of a text file, always ended by a NUL.
struct TextBuffer {
  char text[format::kTextBytes + 1];
};

// Reads once from the open file. Returns the number of bytes, at most kTextBytes; a host that
// claims more has given nothing that can be relied on, and 0 is returned.
std::uint32_t ReadText(os::filesystem::File& file, TextBuffer* buffer);

}  // namespace ox::core::cache

#endif

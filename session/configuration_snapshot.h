// "file-cache.conf" as it was when it was read. A session gives its module this text at every start
// of the manager: were the file changed meanwhile, a restart would delete what no longer fits.
#ifndef OX_SESSION_CONFIGURATION_SNAPSHOT_H_
#define OX_SESSION_CONFIGURATION_SNAPSHOT_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include <oxfilecache/file_system.h>

namespace ox::internal {

class ConfigurationSnapshot {
 public:
  // Reads the file in `directory`. A file that is missing, a symbolic link, or not a regular file
  // counts as none.
  explicit ConfigurationSnapshot(const std::string& directory);

  // Of the file itself, directory included.
  const std::string& Path() const { return path_; }
  bool Exists() const { return exists_; }
  const std::string& Text() const { return text_; }

 private:
  std::string path_;
  bool exists_ = false;
  std::string text_;
};

// One file object's way through the snapshot: what the module gets when it opens and reads the
// file.
class ConfigurationReader {
 public:
  explicit ConfigurationReader(const ConfigurationSnapshot& snapshot) : snapshot_(snapshot) {}

  // As ox::os::filesystem::File::Open, from the start of the text.
  bool Open(int mode);
  void Close() { isOpen_ = false; }
  bool IsOpen() const { return isOpen_; }
  std::uint64_t Read(std::uint64_t count, void* destination);

 private:
  const ConfigurationSnapshot& snapshot_;
  std::size_t position_ = 0;
  bool isOpen_ = false;
};

}  // namespace ox::internal

#endif

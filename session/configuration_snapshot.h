// "file-cache.conf" as the module gets it from a session: once as it stands on disk, to be asked
// for the limits, and from then on as a text that states these limits. Were the file itself read at
// every start of the manager, a restart after a change would delete what no longer fits.
#ifndef OX_SESSION_CONFIGURATION_SNAPSHOT_H_
#define OX_SESSION_CONFIGURATION_SNAPSHOT_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include <oxfilecache/error.h>
#include <oxfilecache/file_system.h>
#include <oxfilecache/session.h>

namespace ox::internal {

class ConfigurationSnapshot {
 public:
  // What is in `directory`. A file that is missing, a symbolic link, or not a regular file counts
  // as none; one that cannot be read whole, as far as the module looks, is an error.
  static Error Read(const std::string& directory, ConfigurationSnapshot* snapshot);
  // A text for the file in `directory` from which the module reads these limits. A cache directory
  // other than that may have at most kLongestDirectory bytes.
  static constexpr std::size_t kLongestDirectory = 900;
  static void Write(const std::string& directory, const session::CacheLimits& limits,
                    ConfigurationSnapshot* snapshot);

  // Of the file, directory included.
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

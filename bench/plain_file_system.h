// A file system for the module in which each call of the interface is one system call: a hit costs
// access, open, read and close, and no call shares what an earlier one learned. What a host costs
// that takes the interface at its word.
//
// File objects come from a list of spare ones, so that whatever is allocated is the module's.
#ifndef OX_BENCH_PLAIN_FILE_SYSTEM_H_
#define OX_BENCH_PLAIN_FILE_SYSTEM_H_

#include <memory>
#include <string>
#include <vector>

#include <oxfilecache/file_system.h>
#include <oxfilecache/string.h>

namespace ox::bench {

class PlainFile final : public os::filesystem::File {
 public:
  int SetPath(const char* utf8Path) override;
  int Open(int mode) override;
  void Close() override;
  int Delete(int flags) override;
  int Exists() override;
  void GetPath(OxString& out) override;
  std::uint64_t GetSize() override;
  std::uint64_t Read(std::uint64_t count, void* destination) override;
  std::uint64_t Write(std::uint64_t count, const void* source) override;
  // In the order of the directory.
  int EnumerateDirectory(EnumerateCallback callback, void* context, int flags) override;

 private:
  // Not copied: the module keeps it alive.
  const char* path_ = nullptr;
  int fd_ = -1;
};

// For one thread.
class PlainFileSystem final : public IFileSystem {
 public:
  explicit PlainFileSystem(std::string directory);

  os::filesystem::File* CreateFile() override;
  void DestroyFile(os::filesystem::File* file) override;
  int GetDefaultDirectory(OxString& out) override;

 private:
  std::string directory_;
  std::vector<std::unique_ptr<PlainFile>> files_;
  std::vector<PlainFile*> spare_;
};

}  // namespace ox::bench

#endif

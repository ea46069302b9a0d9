#include "hostcheck/check.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include <oxfilecache/kernel.h>

namespace ox::hostcheck::internal {
namespace {

constexpr std::size_t kMaxQuoted = 200;

IOxKernel& GetKernel(KernelSource& source, const std::string& directory) {
  IOxKernel* kernel = source.Get(directory.c_str());
  Expect(kernel != nullptr, "null was handed over");
  // The host fills strings that are freed here, so both sides must use the same memory.
  SetKernel(kernel);
  return *kernel;
}

}  // namespace

Run::Run(KernelSource& source, std::string directory, std::chrono::milliseconds patience)
    : source_(source),
      directory_(std::move(directory)),
      patience_(patience),
      kernel_(GetKernel(source, directory_)) {}

IFileSystem& Run::FileSystem() const {
  void* fileSystem = kernel_.GetInterface("IFileSystem");
  Expect(fileSystem != nullptr, "GetInterface gave null for IFileSystem");
  return *static_cast<IFileSystem*>(fileSystem);
}

void Expect(bool holds, const std::string& why) {
  if (!holds) throw std::runtime_error(why);
}

std::string Quote(const std::string& text) {
  return '"' + text.substr(0, kMaxQuoted) + (text.size() > kMaxQuoted ? "...\"" : "\"");
}

HostFile::HostFile(const Run& run, std::string path)
    : fileSystem_(run.FileSystem()), path_(std::move(path)), file_(fileSystem_.CreateFile()) {
  Expect(file_ != nullptr, "CreateFile gave null");
  file_->SetPath(path_.c_str());
}

HostFile::~HostFile() {
  fileSystem_.DestroyFile(file_);
}

void PutOnDisk(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content << std::flush;
  if (!file) throw std::runtime_error("the check itself cannot write " + path);
}

std::string ContentOnDisk(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  Expect(file.is_open(), "the file is not there: " + path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool IsOnDisk(const std::string& path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path));
}

}  // namespace ox::hostcheck::internal

#include "scripts/device/stores.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "scripts/device/device.h"

namespace ox::device {
namespace {

void Require(bool isGood, const char* what) {
  if (isGood) return;
  Tell(std::string("! ") + what);
  std::exit(1);
}

void Drain(int fd) {
  std::array<char, 16384> piece;
  while (read(fd, piece.data(), piece.size()) > 0)
    continue;
}

class SessionStore : public EntryStore {
 public:
  SessionStore(const std::string& directory, session::Durability durability)
      : session_(OpenSession(directory, durability)) {}

  void Put(const std::string& url, const std::string& content,
           const std::string& metadata) override {
    Error error;
    const auto writer = session_->Store(url, &error);
    const bool isStored = writer != nullptr && !writer->Write(content.data(), content.size()) &&
                          !(error = writer->Commit(metadata));
    Require(isStored, error.Message().c_str());
  }
  bool Get(const std::string& url) override {
    Error error;
    const auto entry = session_->Fetch(url, &error);
    if (entry) Drain(entry->content.Get());
    return entry.has_value();
  }
  bool Look(const std::string& url) override {
    Error error;
    return session_->Contains(url, &error) && session_->Statistics().entries > 0;
  }
  void Renew(const std::string& url, const std::string& metadata) override {
    const Error error = session_->SetMetadata(url, metadata);
    Require(!error, error.Message().c_str());
  }

 private:
  const std::unique_ptr<session::CacheSession> session_;
};

// The metadata stands before the content.
class RenameStore : public EntryStore {
 public:
  RenameStore(std::string directory, bool isSynchronised)
      : directory_(std::move(directory)), isSynchronised_(isSynchronised) {}

  void Put(const std::string& url, const std::string& content,
           const std::string& metadata) override {
    const std::string path = PathOf(url);
    const std::string whole = metadata + "\n" + content;
    const UniqueFd file(
        open((path + ".new").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    const auto bytes = static_cast<ssize_t>(whole.size());
    Require(write(file.Get(), whole.data(), whole.size()) == bytes, "cannot write");
    if (isSynchronised_) Require(fsync(file.Get()) == 0, "cannot synchronise");
    Require(rename((path + ".new").c_str(), path.c_str()) == 0, "cannot rename");
    if (!isSynchronised_) return;
    const UniqueFd directory(open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    Require(fsync(directory.Get()) == 0, "cannot synchronise the directory");
  }
  bool Get(const std::string& url) override {
    const UniqueFd file(open(PathOf(url).c_str(), O_RDONLY | O_CLOEXEC));
    if (file.IsOpen()) Drain(file.Get());
    return file.IsOpen();
  }
  bool Look(const std::string& url) override { return access(PathOf(url).c_str(), F_OK) == 0; }
  // The whole file is written anew.
  void Renew(const std::string& url, const std::string& metadata) override {
    const UniqueFd file(open(PathOf(url).c_str(), O_RDONLY | O_CLOEXEC));
    std::string whole(1 << 20, '\0');
    const ssize_t bytes = read(file.Get(), whole.data(), whole.size());
    Require(bytes > 0, "cannot read");
    whole.resize(static_cast<std::size_t>(bytes));
    Put(url, whole.substr(whole.find('\n') + 1), metadata);
  }

 private:
  // The URLs of the measure end with a number.
  std::string PathOf(const std::string& url) const {
    return directory_ + "/" + url.substr(url.rfind('/') + 1);
  }

  const std::string directory_;
  const bool isSynchronised_;
};

}  // namespace

std::unique_ptr<EntryStore> OpenStore(const std::string& kind, const std::string& directory) {
  if (kind == "rename") return std::make_unique<RenameStore>(directory, false);
  if (kind == "rename-sync") return std::make_unique<RenameStore>(directory, true);
#ifdef OX_DEVICE_HAS_SQLITE
  if (kind == "sqlite") return OpenSqlite(directory, false);
  if (kind == "sqlite-sync") return OpenSqlite(directory, true);
#endif
  return std::make_unique<SessionStore>(directory, DurabilityOf(kind));
}

}  // namespace ox::device

// Our cache through a session. Its user does not handle strings or files of the module.
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "bench/contender.h"
#include "bench/files.h"
#include <oxfilecache/session.h>

namespace ox::bench {
namespace {

void Check(const Error& error) {
  if (error) throw std::runtime_error(error.Message());
}

class SessionCache final : public Contender {
 public:
  SessionCache(const Setting& setting, session::Durability durability,
               session::Check check = session::Check::kOnce) {
    WriteConfiguration(setting.directory, setting.entries);
    options_.directory = setting.directory;
    options_.durability = durability;
    options_.check = check;
    // A copy, so that the library can be in use by the bare interface in the same process.
    options_.modulePath =
        std::filesystem::path(setting.directory).parent_path() / "session_copy.so";
    std::filesystem::copy_file(OX_MODULE_PATH, options_.modulePath,
                               std::filesystem::copy_options::skip_existing);
  }

  void Open() override {
    Error error;
    session_ = session::CacheSession::Open(options_, &error);
    Check(error);
  }

  void Close() override { session_.reset(); }

  void Store(std::size_t index, std::string_view content, const std::string& metadata) override {
    Error error;
    const auto writer = session_->Store(Url(index), &error);
    Check(error);
    Check(writer->Write(content.data(), content.size()));
    Check(writer->Commit(metadata));
  }

  // Every fetch opens the content, whatever of it is wanted.
  bool Fetch(std::size_t index, Want want, Fetched* out) override {
    Error error;
    const auto found = session_->Fetch(Url(index), &error);
    if (error.kind == ErrorKind::kNotFound) return false;
    Check(error);
    out->metadataBytes = found->metadata.size();
    std::memcpy(out->metadata, found->metadata.data(), out->metadataBytes);
    if (want != Want::kContent) return true;
    const ssize_t count = read(found->content.Get(), out->content.data(), out->content.size());
    if (count < 0) ThrowSystemError("read", found->path.c_str());
    out->contentBytes = static_cast<std::size_t>(count);
    return true;
  }

  void Remove(std::size_t index) override { Check(session_->Remove(Url(index))); }

 private:
  session::SessionOptions options_;
  std::unique_ptr<session::CacheSession> session_;
};

const Registration kSession("session", [](const Setting& setting) {
  return std::make_unique<SessionCache>(setting, session::Durability::kProcess);
});
const Registration kSessionAlways("session-check-always", [](const Setting& setting) {
  return std::make_unique<SessionCache>(setting, session::Durability::kProcess,
                                        session::Check::kAlways);
});
const Registration kSessionPower("session-power", [](const Setting& setting) {
  return std::make_unique<SessionCache>(setting, session::Durability::kPower);
});
const Registration kSessionNone("session-no-durability", [](const Setting& setting) {
  return std::make_unique<SessionCache>(setting, session::Durability::kNone);
});

}  // namespace
}  // namespace ox::bench

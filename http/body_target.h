// Where a body goes while it arrives: into the cache, to the caller's receiver, into a file.
#ifndef OX_HTTP_BODY_TARGET_H_
#define OX_HTTP_BODY_TARGET_H_

#include <cstdint>
#include <memory>
#include <string>

#include <oxfilecache/http.h>

namespace ox::internal::http {

class BodyTarget {
 public:
  // The receiver may be null. A body that has neither a receiver nor an entry is written to a file
  // without a name in that directory.
  BodyTarget(ox::http::BodyReceiver* receiver, std::string temporaryDirectory);

  // Begins an entry for the body. Where the cache refuses, WhyNotStored says why.
  void OpenEntry(session::CacheSession& session, const std::string& url);
  // The body is not stored; what its entry has so far is dropped.
  void GiveUpEntry(Error why);
  Error Begin();
  Error Write(const char* data, std::size_t bytes);
  // Commits the entry. Where that fails it is given up.
  void Commit(const std::string& metadata);
  // Keeps what has arrived as the entry of `partUrl` in case the process ends
  // (StoreWriter::KeepAs). False when that fails.
  bool KeepPart(const std::string& partUrl, const std::string& metadata);
  // Commits what has arrived of a body that broke off as the entry of `partUrl`.
  void CommitPart(const std::string& partUrl, const std::string& metadata);

  std::uint64_t Received() const { return received_; }
  bool IsStored() const { return writer_ != nullptr || isCommitted_; }
  const Error& WhyNotStored() const { return whyNotStored_; }
  // True when the entry was given up after bytes had gone into it and nowhere else: they are lost.
  bool IsLost() const { return isLost_; }
  // The file without a name, from its start on; not open when nothing was written to it.
  UniqueFd TakeFile();

 private:
  Error WriteToFile(const char* data, std::size_t bytes);

  ox::http::BodyReceiver* const receiver_;
  const std::string temporaryDirectory_;
  std::unique_ptr<session::StoreWriter> writer_;
  UniqueFd file_;
  Error whyNotStored_;
  std::uint64_t received_ = 0;
  bool isCommitted_ = false;
  bool isLost_ = false;
};

}  // namespace ox::internal::http

#endif

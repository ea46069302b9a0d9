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
  // Without a receiver, a body that is not stored goes into a file without a name in that
  // directory.
  BodyTarget(ox::http::BodyReceiver* receiver, std::string temporaryDirectory);

  // Into an entry, unless the cache refuses.
  void OpenEntry(session::CacheSession& session, const std::string& url);
  // Not, or no longer, into an entry.
  void GiveUpEntry(Error why);
  Error Begin();
  Error Write(const char* data, std::size_t bytes);
  // Ends with the entry in the cache, or given up.
  void Commit(const std::string& metadata);
  // Makes what is there an entry of its own in case the process ends. False when it cannot.
  bool KeepPart(const std::string& partUrl, const std::string& metadata);
  // As Commit, for a body that broke off, as an entry of its own.
  void CommitPart(const std::string& partUrl, const std::string& metadata);

  std::uint64_t Received() const { return received_; }
  bool IsStored() const { return writer_ != nullptr || isCommitted_; }
  const Error& WhyNotStored() const { return whyNotStored_; }
  // The cache gave up on what had only gone there, so it is lost.
  bool IsLost() const { return isLost_; }
  // With the position at the start; not open when nothing went there.
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

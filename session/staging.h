// One entry on its way in, as the session sees it.
#ifndef OX_SESSION_STAGING_H_
#define OX_SESSION_STAGING_H_

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <oxfilecache/session.h>

namespace ox::session {

class StoreWriter::Staging {
 public:
  Staging(SessionCore& session, std::string newUrl, std::string newId)
      : core(session), url(std::move(newUrl)), id(std::move(newId)) {}
  // Deletes what was staged and not committed, and gives its bytes back.
  ~Staging();
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  SessionCore& core;
  const std::string url;
  const std::string id;
  std::string contentPath;
  std::string metaDataPath;
  UniqueFd file;
  std::uint64_t contentBytes = 0;
  Error failure;  // of a Write: what reached the file is unknown since
  bool isCommitted = false;
  // A commit file was made and taken back, and the medium may have kept the first and not the
  // second: the content must be there when a start finds the commit file.
  bool mayBeDecided = false;

  // Guarded by the session's mutex.
  std::uint64_t chargedBytes = 0;  // counted in the session's bytes
  std::thread::id user;            // the thread that wrote last
};

}  // namespace ox::session

#endif

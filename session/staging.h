// One entry on its way in: what a writer has staged, and the steps that committing it and keeping a
// part of it share.
#ifndef OX_SESSION_STAGING_H_
#define OX_SESSION_STAGING_H_

#include <cstdint>
#include <memory>
#include <string>

#include "session/entry_seal.h"
#include "session/publish.h"
#include "session/session_state.h"
#include <oxfilecache/descriptor.h>

namespace ox::internal {

struct Staging {
  Staging(const std::shared_ptr<SessionState>& openSession, std::string newUrl, std::string newId);

  // Gone once the session is closed. Each call of the writer holds it while it uses the state.
  const std::weak_ptr<SessionState> session;
  SessionState& state;
  std::string url;
  std::string contentPath;
  std::string metadataPath;
  UniqueFd file;
  std::uint64_t contentBytes = 0;
  std::uint32_t contentSum = 0;
  // Of a Write or a Commit that left it unknown what the file holds.
  Error failure;
  PublishOutcome outcome;
  WriterShare share;
};

// For durability `power`: what that takes of the files is done before they come into place.
bool MustSurvivePowerCut(const Staging& staging);

// In a forked child the files are the parent's.
bool IsOurs(const Staging& staging);

std::uint64_t MaxContentBytes(const SessionState& state) OX_REQUIRES(state.mutex);

// Room for the metadata, and its time of use. An error also when nothing may be committed.
Error GrantMetadata(Staging& staging, const std::string& metadata, std::int64_t* time);

// For durability `power` the content is as certain afterwards as the metadata file.
Error StageMetadata(Staging& staging, const EntrySeal& seal, const std::string& metadata,
                    std::int64_t time);
// The metadata file alone, under that path.
Error WriteMetadata(const Staging& staging, const EntrySeal& seal, const std::string& metadata,
                    std::int64_t time, const std::string& path);

// The staged metadata of one try: deleted and its room given back when the try fails.
class StagedMetadata {
 public:
  // Before the room for it is granted.
  explicit StagedMetadata(Staging& staging);
  ~StagedMetadata();
  StagedMetadata(const StagedMetadata&) = delete;
  StagedMetadata& operator=(const StagedMetadata&) = delete;

  // It has its place, where it counts as so many bytes.
  std::uint64_t Release();

 private:
  std::uint64_t OtherBytes() const { return staging_.share.bytes - staging_.share.keptBytes; }

  Staging& staging_;
  const std::uint64_t before_;
  bool isReleased_ = false;
};

// Whether KeepAs has kept it as the entry of that URL.
bool IsKeptAs(const Staging& staging, const std::string& url);
// Deletes the commit file that KeepAs has made.
Error DropKept(SessionState& state, Staging& staging) OX_REQUIRES(state.mutex);

}  // namespace ox::internal

#endif

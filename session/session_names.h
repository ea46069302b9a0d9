// The names of a session's own files. The module's scan looks only at names that end in
// ".ox_meta", so it never sees these.
//
//   ox-ID.part         content being written
//   ox-ID.meta         metadata being written
//   ox-ID.conf         a configuration being written, in its own directory
//   NAME.ID.commit     the metadata of a decided commit: its content is ox-ID.part or, once that is
//                      gone, already in NAME
//   ox-session.lock    who has the directory
//   ox-session.order   the order of use on the way through an image (use_order.h)
//
// NAME is the content file's name, ID is unique for all time: were it used twice, a stale commit
// file could claim another's half-written content after a power cut.
#ifndef OX_SESSION_SESSION_NAMES_H_
#define OX_SESSION_SESSION_NAMES_H_

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <initializer_list>
#include <string>
#include <string_view>
#include <tuple>

#include <oxfilecache/format.h>

namespace ox::internal {

constexpr char kLockFileName[] = "ox-session.lock";
constexpr char kUseOrderFileName[] = "ox-session.order";

constexpr std::string_view kStagedPathPrefix = "/ox-";  // one piece less to join
constexpr std::string_view kStagedPrefix = kStagedPathPrefix.substr(1);
constexpr std::string_view kStagedContentSuffix = ".part";
constexpr std::string_view kStagedMetadataSuffix = ".meta";
constexpr std::string_view kStagedConfigurationSuffix = ".conf";
constexpr std::string_view kCommitSuffix = ".commit";

// With one allocation.
std::string Joined(std::initializer_list<std::string_view> pieces);

inline std::string StagedContentName(std::string_view id) {
  return Joined({kStagedPrefix, id, kStagedContentSuffix});
}
inline std::string StagedContentPath(std::string_view directory, std::string_view id) {
  return Joined({directory, kStagedPathPrefix, id, kStagedContentSuffix});
}
inline std::string StagedMetadataPath(std::string_view directory, std::string_view id) {
  return Joined({directory, kStagedPathPrefix, id, kStagedMetadataSuffix});
}
inline std::string StagedConfigurationName(std::string_view id) {
  return Joined({kStagedPrefix, id, kStagedConfigurationSuffix});
}
// Of an entry's name; or of its path, then this is a path, too.
inline std::string CommitFileName(std::string_view entryName, std::string_view id) {
  return Joined({entryName, ".", id, kCommitSuffix});
}

// The ID when the name is one of a staged file, otherwise empty.
std::string StagingId(const std::string& name);
bool IsStagedConfigurationName(const std::string& name);

// The order in which staged files and commit files were made. Of one time, as coarse file systems
// give it, the later ID of a session is the longer one. Lives as long as the name.
inline std::tuple<std::time_t, long, std::size_t, std::string_view> AgeOf(const timespec& modified,
                                                                          std::string_view name) {
  return {modified.tv_sec, modified.tv_nsec, name.size(), name};
}

// True, with both parts, when the name is one of a commit file.
bool ParseCommitFileName(const std::string& name, std::string* entryName, std::string* id);

// The lock file, the order of use and the configuration, which belong to no entry.
bool IsPermanentSessionName(const std::string& name);
// Any of the names above.
bool IsSessionName(const std::string& name);

// Makes the IDs of one session. Not thread-safe.
class IdSource {
 public:
  IdSource();
  std::string Next();
  // Of this session, and not to be foreseen.
  std::uint64_t Secret() const { return session_; }

 private:
  std::uint64_t session_;
  std::string prefix_;
  std::uint64_t count_ = 0;
};

}  // namespace ox::internal

#endif

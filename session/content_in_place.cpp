#include "session/content_in_place.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>

#include "host/system_calls.h"
#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/session_names.h"
#include <oxfilecache/descriptor.h>

namespace ox::internal {
namespace {

bool IsSealedContent(int file, const EntrySeal& seal, bool* isSealed) {
  struct stat status;
  if (fstat(file, &status) != 0) return false;
  *isSealed = false;
  if (static_cast<std::uint32_t>(status.st_size) != seal.contentBytes) return true;
  std::uint32_t sum = 0;
  if (!SumContent(file, &sum)) return false;
  *isSealed = sum == seal.contentSum;
  return true;
}

}  // namespace

bool IsContentInPlace(const std::string& commitPath, const std::string& contentPath,
                      bool* isInPlace) {
  *isInPlace = false;
  struct stat status;
  if (lstat(contentPath.c_str(), &status) != 0) return errno == ENOENT;
  if (!S_ISREG(status.st_mode)) return true;
  *isInPlace = true;
  int error = 0;
  const auto seal = ReadSeal(commitPath, &error);
  errno = error;
  if (!seal) return error == 0;
  const UniqueFd content(OpenWithoutTrace(AT_FDCWD, contentPath.c_str(), O_NOFOLLOW | O_NONBLOCK));
  return content.IsOpen() && IsSealedContent(content.Get(), *seal, isInPlace);
}

bool IsContentInPlace(int commitFile, int contentFile, bool* isInPlace) {
  *isInPlace = true;
  int error = 0;
  const auto seal = ReadSeal(commitFile, &error);
  errno = error;
  return seal ? IsSealedContent(contentFile, *seal, isInPlace) : error == 0;
}

bool IsOfGrowingContent(const std::string& directory, const std::string& commitName) {
  std::string entryName;
  std::string id;
  if (!ParseCommitFileName(commitName, &entryName, &id)) return false;
  const auto seal = ReadSeal(directory + "/" + commitName);
  return seal && FileSize(directory + "/" + StagedContentName(id)) > seal->contentBytes;
}

}  // namespace ox::internal

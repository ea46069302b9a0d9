#include "session/metadata_file.h"

#include <cerrno>

#include "session/durable_io.h"
#include "session/errno_meaning.h"
#include "session/utf8.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/format.h>

namespace ox::internal {

Error CheckMetadata(const std::string& metadata) {
  const bool isWhole =
      !metadata.empty() && metadata.size() <= format::kTextBytes && IsAsciiText(metadata);
  if (isWhole) return {};
  return MakeError(ErrorKind::kInvalidArgument,
                   "metadata must be 1 to 1,024 bytes of ASCII without NUL");
}

Error StageMetadataFile(const FileAt& place, const std::string& path, const std::string& metadata,
                        std::int64_t time, const EntrySeal* seal, FileSync sync, bool mayLackSeal) {
  const UniqueFd file = CreateNewFile(place);
  if (!file.IsOpen() || !WriteAll(file.Get(), metadata.data(), metadata.size()) ||
      (seal != nullptr && !WriteSeal(file.Get(), *seal, mayLackSeal))) {
    return SystemError("cannot write", path);
  }
  // Some cards belong to another user and refuse. The time that the file has then comes close.
  if (!SetFileTime(file.Get(), time) && !IsLastingRefusal(errno)) {
    return SystemError("cannot write", path);
  }
  return MakeCertain(file.Get(), sync) ? Error{} : SystemError("cannot synchronise", path);
}

}  // namespace ox::internal

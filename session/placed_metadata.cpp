#include "session/placed_metadata.h"

#include <cerrno>

#include "session/durable_io.h"

namespace ox::internal {

PlacedMetadata::~PlacedMetadata() {
  if (isThere_ && !files_.Delete(files_.metadata)) account_.MarkStale();
}

Error PlacedMetadata::Write(const MetadataWriter& write) {
  isThere_ = true;
  const Error error = write(files_.metadata);
  isThere_ = error.systemError != EEXIST;
  return isThere_ ? error : write(files_.stagedMetadata);
}

Error PlacedMetadata::MoveToStaged() {
  if (!isThere_) return {};
  if (!files_.Rename(files_.metadata, files_.stagedMetadata)) {
    return SystemError("cannot rename", files_.metadata);
  }
  isThere_ = false;
  return {};
}

}  // namespace ox::internal

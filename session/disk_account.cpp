#include "session/disk_account.h"

#include <algorithm>

#include "session/survey.h"

namespace ox::internal {

void TotalBounds::Reset(std::uint64_t contentBytes) {
  lowest_ = static_cast<std::int64_t>(contentBytes);
  highest_ = lowest_;
}

void TotalBounds::Add(std::uint64_t bytes) {
  lowest_ += static_cast<std::int64_t>(bytes);
  highest_ += static_cast<std::int64_t>(bytes);
}

void TotalBounds::Subtract(std::uint64_t bytes, bool isCertain) {
  lowest_ -= static_cast<std::int64_t>(bytes);
  if (isCertain) highest_ -= static_cast<std::int64_t>(bytes);
}

void DiskAccount::Reset(const Survey& survey, std::uint64_t bytesBeingWritten,
                        std::int64_t managerStart) {
  *this = DiskAccount();
  entries_ = survey.entries.size();
  bytes_ = survey.bytes + bytesBeingWritten;
  std::uint64_t contentBytes = 0;
  for (const SurveyedEntry& entry : survey.entries)
    contentBytes += entry.contentBytes;
  total_.Reset(contentBytes);
  managerStart_ = managerStart;
}

void DiskAccount::NoteCreated(std::uint64_t metadataLength) {
  ++entries_;
  total_.Add(metadataLength);
}

void DiskAccount::NoteAbandoned(std::uint64_t metadataLength) {
  total_.Subtract(metadataLength, true);
}

// The manager's total stays as it is: when the entry goes, it takes off what it read last.
void DiskAccount::NoteReplaced(std::uint64_t oldBytes) {
  bytes_ -= std::min(bytes_, oldBytes);
}

// Where the deletion fails, also because the file is missing, the manager leaves the metadata file
// behind and takes an unknown number of bytes off its total.
void DiskAccount::NoteContentDeletion(bool isDeleted, std::uint64_t bytes, int error) {
  if (entries_ > 0) --entries_;
  NoteDeletion(isDeleted, bytes, error);
}

void DiskAccount::NoteMetadataDeletion(bool isDeleted, std::uint64_t bytes, std::int64_t modified,
                                       int error) {
  total_.Subtract(bytes, isDeleted && modified > managerStart_);
  NoteDeletion(isDeleted, bytes, error);
}

void DiskAccount::NoteDeletion(bool isDeleted, std::uint64_t bytes, int error) {
  if (isDeleted) {
    // Somebody else may have let the file grow.
    bytes_ -= std::min(bytes_, bytes);
    return;
  }
  isStale_ = true;
  deletionError_ = error;
}

bool DiskAccount::StaysWithin(std::uint64_t subtracted, std::uint64_t added,
                              std::uint64_t limit) const {
  return total_.Lowest() >= static_cast<std::int64_t>(subtracted) &&
         total_.Highest() + static_cast<std::int64_t>(added) <= static_cast<std::int64_t>(limit);
}

}  // namespace ox::internal

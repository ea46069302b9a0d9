#include "session/disk_account.h"

#include <algorithm>

#include "session/survey.h"
#include "session/use_clock.h"

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
  entries_ = survey.entries.size();
  bytes_ = bytesBeingWritten;
  std::uint64_t contentBytes = 0;
  for (const SurveyedEntry& entry : survey.entries) {
    bytes_ += OnDisk(entry, unit_);
    contentBytes += entry.contentBytes;
  }
  total_.Reset(contentBytes);
  managerStart_ = managerStart;
  isStale_ = false;
  deletionError_ = 0;
  ++changes_;
}

void DiskAccount::NoteCreated(std::uint64_t metadataLength) {
  ++entries_;
  ++changes_;
  total_.Add(metadataLength);
}

void DiskAccount::NoteAbandoned(std::uint64_t metadataLength) {
  total_.Subtract(metadataLength, true);
}

// The manager's total stays as it is: when the entry goes, it takes off what it read last.
void DiskAccount::NoteReplaced(std::uint64_t oldBytes) {
  bytes_ -= std::min(bytes_, oldBytes);
  ++changes_;
}

// Where the deletion fails, also because the file is missing, the manager leaves the metadata file
// behind and takes an unknown number of bytes off its total.
void DiskAccount::NoteContentDeletion(const struct stat& status, bool isDeleted, int error) {
  if (entries_ > 0) --entries_;
  ++changes_;
  NoteDeletion(unit_.OnDisk(static_cast<std::uint64_t>(status.st_size)), isDeleted, error);
}

void DiskAccount::NoteMetadataDeletion(const struct stat& status, bool isDeleted, int error) {
  total_.Subtract(static_cast<std::uint64_t>(status.st_size),
                  isDeleted && ToNanoseconds(status.st_mtim) > managerStart_);
  NoteDeletion(unit_.OfMetadata(status), isDeleted, error);
}

void DiskAccount::NoteDeletion(std::uint64_t bytes, bool isDeleted, int error) {
  if (isDeleted) {
    // Somebody else may have let the file grow.
    bytes_ -= std::min(bytes_, bytes);
    return;
  }
  MarkStale();
  deletionError_ = error;
}

bool DiskAccount::StaysWithin(std::uint64_t subtracted, std::uint64_t added,
                              std::uint64_t limit) const {
  return total_.Lowest() >= static_cast<std::int64_t>(subtracted) &&
         total_.Highest() + static_cast<std::int64_t>(added) <= static_cast<std::int64_t>(limit);
}

}  // namespace ox::internal

#include "tests/support/crash_states.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "session/entry_seal.h"
#include "session/use_clock.h"
#include "tests/support/scratch_directory.h"

namespace ox::testing {
namespace {

using Kind = FileOperation::Kind;

constexpr std::size_t kBlock = 512;
// What became of a file that was not synchronised.
constexpr unsigned kFates = 4;

DiskFile Fallen(const DiskFile& certain, const DiskFile& latest, std::uint64_t fate) {
  if (certain == latest) return certain;
  switch (fate) {
    case 0:
      return latest;
    case 1:
      return certain;
    case 2:
      return {latest.bytes.substr(0, latest.bytes.size() / 2 / kBlock * kBlock), latest.time,
              latest.seal};
    default:
      return {std::string(latest.bytes.size(), '\0'), certain.time, certain.seal};
  }
}

void Apply(const FileOperation& operation, std::map<std::string, int>* directory) {
  switch (operation.kind) {
    case Kind::kCreate:
      (*directory)[operation.name] = operation.file;
      break;
    case Kind::kRename:
      directory->erase(operation.name);
      (*directory)[operation.newName] = operation.file;
      break;
    default:
      directory->erase(operation.name);
  }
}

// False for what changes something else.
bool ChangeFile(const FileOperation& operation, DiskFile* file) {
  switch (operation.kind) {
    case Kind::kWrite:
      file->bytes.resize(std::max(file->bytes.size(), operation.offset + operation.bytes.size()));
      file->bytes.replace(operation.offset, operation.bytes.size(), operation.bytes);
      return true;
    case Kind::kEmpty:
      file->bytes.clear();
      return true;
    case Kind::kSetTime:
      file->time = operation.time;
      return true;
    case Kind::kSetSeal:
      file->seal = operation.bytes;
      return true;
    default:
      return false;
  }
}

}  // namespace

DiskImage ReadImage(const std::string& directory) {
  DiskImage image;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    struct stat status;
    EXPECT_EQ(0, lstat(entry.path().c_str(), &status));
    char seal[4096];
    const ssize_t bytes =
        lgetxattr(entry.path().c_str(), internal::kSealAttribute, seal, sizeof seal);
    image[entry.path().filename()] = {
        ReadWhole(entry.path()), internal::ToNanoseconds(status.st_mtim),
        std::string(seal, bytes > 0 ? static_cast<std::size_t>(bytes) : 0)};
  }
  return image;
}

void WriteImage(const DiskImage& image, const std::string& directory) {
  for (const auto& [name, file] : image) {
    const std::string path = directory + "/" + name;
    WriteWhole(path, file.bytes);
    const timespec time = internal::ToTimespec(file.time);
    const timespec times[2] = {time, time};
    EXPECT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
    if (file.seal.empty()) continue;
    EXPECT_EQ(
        0, setxattr(path.c_str(), internal::kSealAttribute, file.seal.data(), file.seal.size(), 0));
  }
}

CrashStates::Moment CrashStates::Beginning() const {
  Moment moment;
  int number = 0;
  for (const auto& [name, file] : start_) {
    moment.certain[name] = number;
    moment.files[number++] = {file, file};
  }
  return moment;
}

CrashStates::Moment CrashStates::At(std::size_t cut) const {
  Moment moment = Beginning();
  for (std::size_t i = 0; i < cut; ++i) {
    const FileOperation& operation = operations_[i];
    File& file = moment.files[operation.file];
    if (ChangeFile(operation, &file.latest)) continue;
    switch (operation.kind) {
      case Kind::kWriteOut:
        break;
      case Kind::kSyncFile:
        file.certain = file.latest;
        break;
      case Kind::kSyncDirectory:
        for (const FileOperation& change : moment.pending)
          Apply(change, &moment.certain);
        moment.pending.clear();
        break;
      default:
        moment.pending.push_back(operation);
    }
  }
  return moment;
}

CrashStates::Moment CrashStates::At(std::size_t cut, std::size_t kept) const {
  Moment moment = Beginning();
  for (std::size_t i = 0; i < cut; ++i) {
    const FileOperation& operation = operations_[i];
    File& file = moment.files[operation.file];
    const bool isKept = i < kept;
    const bool isOfFile = ChangeFile(operation, &file.latest);
    switch (operation.kind) {
      case Kind::kSetTime:
      case Kind::kSetSeal:
        if (isKept) ChangeFile(operation, &file.certain);
        break;
      case Kind::kWriteOut:
        if (isKept) file.certain.bytes = file.latest.bytes;
        break;
      case Kind::kSyncFile:
        file.certain = file.latest;
        break;
      case Kind::kSyncDirectory:
        break;
      default:
        if (isKept && !isOfFile) Apply(operation, &moment.certain);
    }
  }
  return moment;
}

DiskImage CrashStates::Build(const Moment& moment, std::uint64_t kept, std::uint64_t fates) {
  Directory directory = moment.certain;
  for (std::size_t i = 0; i < moment.pending.size(); ++i) {
    if ((kept >> i & 1) != 0) Apply(moment.pending[i], &directory);
  }
  std::map<int, DiskFile> fallen;
  for (const auto& [number, file] : moment.files) {
    fallen[number] = Fallen(file.certain, file.latest, fates % kFates);
    if (!(file.certain == file.latest)) fates /= kFates;
  }
  DiskImage image;
  for (const auto& [name, number] : directory)
    image[name] = fallen[number];
  return image;
}

std::vector<DiskImage> CrashStates::AfterOrdered(std::size_t cut, std::size_t most,
                                                 std::mt19937* random) const {
  std::size_t first = cut;
  while (first > 0 && operations_[first - 1].kind != Kind::kSyncDirectory)
    --first;
  std::set<DiskImage> seen;
  std::vector<DiskImage> images;
  const auto add = [&](std::size_t kept, std::uint64_t fates) {
    DiskImage image = Build(At(cut, kept), 0, fates);
    if (seen.insert(image).second) images.push_back(std::move(image));
  };
  add(cut, 0);
  for (std::size_t i = 1; i < most; ++i)
    add(first + (*random)() % (cut - first + 1), (*random)());
  return images;
}

std::vector<DiskImage> CrashStates::After(std::size_t cut, std::size_t most,
                                          std::mt19937* random) const {
  if (isOrdered_) return AfterOrdered(cut, most, random);
  const Moment moment = At(cut);
  const std::size_t changes = std::min<std::size_t>(moment.pending.size(), 40);
  const std::uint64_t all = (std::uint64_t{1} << changes) - 1;
  double fates = 1;
  std::uint64_t sameForAll = 0;  // times a fate
  for (const auto& [number, file] : moment.files) {
    if (file.certain == file.latest) continue;
    fates *= kFates;
    sameForAll = sameForAll * kFates + 1;
  }
  std::set<DiskImage> seen;
  std::vector<DiskImage> images;
  const auto add = [&](std::uint64_t kept, std::uint64_t choice) {
    DiskImage image = Build(moment, kept, choice);
    if (seen.insert(image).second) images.push_back(std::move(image));
  };
  add(all, 0);
  if (most == 1) return images;
  if (fates * static_cast<double>(all + 1) <= static_cast<double>(most)) {
    for (std::uint64_t kept = 0; kept <= all; ++kept) {
      for (std::uint64_t choice = 0; choice < static_cast<std::uint64_t>(fates); ++choice)
        add(kept, choice);
    }
    return images;
  }
  // In order, as a journalling file system loses them, with each fate for all files.
  for (std::size_t first = 0; first <= changes; ++first) {
    for (unsigned fate = 0; fate < kFates; ++fate)
      add((std::uint64_t{1} << first) - 1, sameForAll * fate);
  }
  const auto choose = [&] { return std::uint64_t{(*random)()} << 32 | (*random)(); };
  for (std::size_t i = 0; i < most; ++i)
    add(choose() & all, choose());
  return images;
}

}  // namespace ox::testing

#include "tests/support/crash_states.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "tests/support/scratch_directory.h"

namespace ox::testing {
namespace {

using Kind = FileOperation::Kind;

constexpr std::size_t kBlock = 512;
// What became of a file that was not synchronised.
constexpr unsigned kFates = 4;

DiskFile Fallen(const DiskFile& certain, const DiskFile& latest, unsigned fate) {
  if (certain == latest) return certain;
  switch (fate) {
    case 0:
      return latest;
    case 1:
      return certain;
    case 2:
      return {latest.bytes.substr(0, latest.bytes.size() / 2 / kBlock * kBlock), latest.time};
    default:
      return {std::string(latest.bytes.size(), '\0'), certain.time};
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

}  // namespace

DiskImage ReadImage(const std::string& directory) {
  DiskImage image;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    struct stat status;
    EXPECT_EQ(0, lstat(entry.path().c_str(), &status));
    image[entry.path().filename()] = {
        ReadWhole(entry.path()),
        std::int64_t{status.st_mtim.tv_sec} * 1000000000 + status.st_mtim.tv_nsec};
  }
  return image;
}

void WriteImage(const DiskImage& image, const std::string& directory) {
  for (const auto& [name, file] : image) {
    const std::string path = directory + "/" + name;
    WriteWhole(path, file.bytes);
    timespec time{};
    time.tv_sec = static_cast<time_t>(file.time / 1000000000);
    time.tv_nsec = static_cast<long>(file.time % 1000000000);
    const timespec times[2] = {time, time};
    EXPECT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
  }
}

CrashStates::CrashStates(const DiskImage& start, const std::vector<FileOperation>& operations)
    : start_(start), operations_(operations) {}

CrashStates::Moment CrashStates::At(std::size_t cut) const {
  Moment moment;
  int number = 0;
  for (const auto& [name, file] : start_) {
    moment.certain[name] = number;
    moment.files[number++] = {file, file};
  }
  for (std::size_t i = 0; i < cut; ++i) {
    const FileOperation& operation = operations_[i];
    File& file = moment.files[operation.file];
    switch (operation.kind) {
      case Kind::kWrite:
        file.latest.bytes.resize(
            std::max(file.latest.bytes.size(), operation.offset + operation.bytes.size()));
        file.latest.bytes.replace(operation.offset, operation.bytes.size(), operation.bytes);
        break;
      case Kind::kEmpty:
        file.latest.bytes.clear();
        break;
      case Kind::kSetTime:
        file.latest.time = operation.time;
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

DiskImage CrashStates::Build(const Moment& moment, std::uint64_t kept,
                             const std::function<unsigned(int)>& fate) {
  Directory directory = moment.certain;
  for (std::size_t i = 0; i < moment.pending.size(); ++i) {
    if ((kept >> i & 1) != 0) Apply(moment.pending[i], &directory);
  }
  DiskImage image;
  for (const auto& [name, number] : directory) {
    const File& file = moment.files.at(number);
    image[name] = Fallen(file.certain, file.latest, fate(number));
  }
  return image;
}

std::vector<DiskImage> CrashStates::After(std::size_t cut, std::size_t most,
                                          std::mt19937* random) const {
  const Moment moment = At(cut);
  std::vector<int> unsure;
  for (const auto& [number, file] : moment.files) {
    if (!(file.certain == file.latest)) unsure.push_back(number);
  }
  const std::size_t changes = std::min<std::size_t>(moment.pending.size(), 40);
  const std::uint64_t all = (std::uint64_t{1} << changes) - 1;
  double combinations = static_cast<double>(all) + 1;
  for (std::size_t i = 0; i < unsure.size(); ++i)
    combinations *= kFates;

  std::set<DiskImage> seen;
  std::vector<DiskImage> images;
  const auto add = [&](std::uint64_t kept, const std::function<unsigned(int)>& fate) {
    DiskImage image = Build(moment, kept, fate);
    if (seen.insert(image).second) images.push_back(std::move(image));
  };
  const auto digit = [&](std::uint64_t digits) {
    return [&unsure, digits](int number) {
      std::uint64_t rest = digits;
      for (const int other : unsure) {
        if (other == number) return static_cast<unsigned>(rest % kFates);
        rest /= kFates;
      }
      return 0U;
    };
  };
  add(all, digit(0));
  if (combinations <= static_cast<double>(most)) {
    const auto fates = static_cast<std::uint64_t>(combinations) / (all + 1);
    for (std::uint64_t kept = 0; kept <= all; ++kept) {
      for (std::uint64_t digits = 0; digits < fates; ++digits)
        add(kept, digit(digits));
    }
    return images;
  }
  // In order, as a journalling file system loses them, with each fate for all files.
  for (std::size_t first = 0; first <= changes; ++first) {
    for (unsigned fate = 0; fate < kFates; ++fate)
      add((std::uint64_t{1} << first) - 1, [fate](int) { return fate; });
  }
  for (std::size_t i = 0; i < most; ++i) {
    const std::uint64_t kept = ((*random)() | std::uint64_t{(*random)()} << 32) & all;
    add(kept, digit((*random)()));
  }
  return images;
}

}  // namespace ox::testing

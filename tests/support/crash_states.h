// What a directory may look like after the power was cut somewhere in a journal.
//
// Only what was synchronised is certain. Of a file: what stood in it at its last synchronisation;
// of later writes nothing, all, a beginning that ends at a block, or the right length with zeros.
// Of the directory: its entries at its last synchronisation; of the later creations, renamings and
// deletions any part, in their order. Each of these is whole or not at all, also a renaming.
//
// A journal that keeps the order has a beginning of all changes to directory, times and seals, at
// least up to the last synchronisation of the directory, and the bytes that had been written out by
// then.
#ifndef OX_TESTS_SUPPORT_CRASH_STATES_H_
#define OX_TESTS_SUPPORT_CRASH_STATES_H_

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/system_calls.h"

namespace ox::testing {

struct DiskFile {
  std::string bytes;
  std::int64_t time = 0;
  std::string seal;  // its extended attribute, empty for none

  auto Parts() const { return std::tie(bytes, time, seal); }
};
inline bool operator<(const DiskFile& a, const DiskFile& b) {
  return a.Parts() < b.Parts();
}
inline bool operator==(const DiskFile& a, const DiskFile& b) {
  return a.Parts() == b.Parts();
}

// By name.
using DiskImage = std::map<std::string, DiskFile>;

DiskImage ReadImage(const std::string& directory);
void WriteImage(const DiskImage& image, const std::string& directory);

class CrashStates {
 public:
  CrashStates(const DiskImage& start, const std::vector<FileOperation>& operations,
              bool isOrdered = false)
      : start_(start), operations_(operations), isOrdered_(isOrdered) {}

  // Images after a cut behind the first `cut` operations. The first is the one where nothing was
  // lost, which is what a killed process leaves; with `most` 1 it is the only one. Otherwise all
  // that there are while they are no more than `most`, or the plain ones and a random choice.
  std::vector<DiskImage> After(std::size_t cut, std::size_t most, std::mt19937* random) const;

 private:
  struct File {
    DiskFile certain;
    DiskFile latest;
  };
  using Directory = std::map<std::string, int>;

  struct Moment {
    std::map<int, File> files;
    Directory certain;
    std::vector<FileOperation> pending;  // changes of the directory since
  };

  Moment Beginning() const;
  Moment At(std::size_t cut) const;
  // With an ordered journal that holds the first `kept` operations.
  Moment At(std::size_t cut, std::size_t kept) const;
  std::vector<DiskImage> AfterOrdered(std::size_t cut, std::size_t most,
                                      std::mt19937* random) const;
  // `kept` has a bit for each pending change, `fates` a digit for each file that is not certain.
  static DiskImage Build(const Moment& moment, std::uint64_t kept, std::uint64_t fates);

  DiskImage start_;
  std::vector<FileOperation> operations_;
  bool isOrdered_;
};

}  // namespace ox::testing

#endif

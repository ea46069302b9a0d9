// The directory that a row of paths leads to, held open, so that the system does not walk to it
// again for each of them. That walk is up to a third of what a call for one small file costs.
//
// What a path leads to may change while it is held: something is mounted over it, it is renamed. It
// is therefore walked to again once a second, and by every holder once one of them was found
// wrong.
//
// Holding it keeps its file system from being unmounted.
//
// Threads: a holder belongs to one thread at a time.
#ifndef OX_HOST_HELD_DIRECTORY_H_
#define OX_HOST_HELD_DIRECTORY_H_

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace ox::internal {

class HeldDirectory {
 public:
  HeldDirectory() = default;
  ~HeldDirectory() { Release(); }
  HeldDirectory(const HeldDirectory&) = delete;
  HeldDirectory& operator=(const HeldDirectory&) = delete;

  // To be called before each use. Holds the directory of that path, which has to be the same as the
  // last time, or Release comes between. None is held when it cannot be opened, or for a relative
  // path, since the working directory may change.
  void Hold(const char* path);
  void Release();

  // open(2) of a path in the directory whose name begins at `nameAt`; also when none is held. New
  // files get mode 0600. A file that is not in the held directory is looked for by its path too,
  // since another may have taken the directory's place; if it is there, nobody trusts what he holds
  // any more. When descriptors run short, the directory's is given up for the file.
  int OpenFile(const char* path, std::size_t nameAt, int flags);

  bool IsHeld() const { return fd_ >= 0; }
  // For the system's calls that take a directory and a path; the working directory when none is
  // held.
  int Descriptor() const;

 private:
  bool IsTrusted() const;

  int fd_ = -1;
  std::time_t openedAt_ = 0;  // seconds since some start, as the system counts them coarsely
  std::uint32_t generation_ = 0;
};

}  // namespace ox::internal

#endif

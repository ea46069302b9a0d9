// The kernel as a whole and its interfaces.
#include "hostcheck/check.h"

namespace ox::hostcheck::internal {
namespace {

// Making the run has handed it over.
void HandsOver(Run&) {}

void IsGivenBack(Run& run) {
  IOxKernel& kernel = run.Kernel();
  kernel.ReleaseInterface(kernel.GetInterface("IFileSystem"));
  if (!run.Source().Release(&kernel)) throw Skipped("the host has no way to take it back");
}

void GivesFileSystem(Run& run) {
  run.FileSystem();
}

void GivesNullForUnknownName(Run& run) {
  for (const char* name : {"IOxHostCheckUnknown", "IFileSystem2", "IFile"}) {
    Expect(run.Kernel().GetInterface(name) == nullptr,
           "GetInterface gave a pointer for " + Quote(name));
  }
}

// A manager takes the interface and hands it back; the next one asks again.
void GivesFileSystemAgain(Run& run) {
  for (int i = 0; i < 3; ++i) {
    IFileSystem& fileSystem = run.FileSystem();
    File* file = fileSystem.CreateFile();
    if (file != nullptr) fileSystem.DestroyFile(file);
    run.Kernel().ReleaseInterface(&fileSystem);
  }
}

}  // namespace

Checks KernelChecks() {
  return {
      {kHandsOverKernel, {}, HandsOver},
      {kGivesFileSystem, {}, GivesFileSystem},
      {"GetInterface: gives null for a name it does not know", {}, GivesNullForUnknownName},
      {"GetInterface: gives the file system again after ReleaseInterface",
       {kGivesFileSystem},
       GivesFileSystemAgain},
      {"kernel: is given back", {kGivesFileSystem}, IsGivenBack},
  };
}

}  // namespace ox::hostcheck::internal

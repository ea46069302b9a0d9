#include "session/module_copy.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/sendfile.h>

#include <cerrno>
#include <system_error>

#include "host/system_calls.h"

#ifndef MFD_EXEC
#define MFD_EXEC 0x0010U
#endif

namespace ox::internal {
namespace {

// Kernels before 6.3 do not know the flag; later ones may be set up to want it.
UniqueFd MakeMemoryFile() {
  constexpr char kName[] = "oxfilecache-module";
  constexpr unsigned kFlags = MFD_CLOEXEC | MFD_ALLOW_SEALING;
  UniqueFd file(memfd_create(kName, kFlags | MFD_EXEC));
  if (file.IsOpen() || errno != EINVAL) return file;
  return UniqueFd(memfd_create(kName, kFlags));
}

bool CopyAll(int from, int to) {
  constexpr std::size_t kPiece = 1 << 20;
  for (;;) {
    const ssize_t part = sendfile(to, from, nullptr, kPiece);
    if (part == 0) return true;
    if (part < 0 && errno != EINTR) return false;
  }
}

// Where the loader finds a name without "/"; as it stands where it does not.
std::string Locate(const std::string& libraryPath) {
  if (libraryPath.find('/') != std::string::npos) return libraryPath;
  void* const library = dlopen(libraryPath.c_str(), RTLD_LAZY | RTLD_LOCAL);
  if (library == nullptr) return libraryPath;
  link_map* map = nullptr;
  const bool isKnown = dlinfo(library, RTLD_DI_LINKMAP, &map) == 0;
  std::string found = isKnown ? map->l_name : libraryPath;
  dlclose(library);
  return found;
}

}  // namespace

bool ModuleCopy::Make(const std::string& libraryPath, std::string* reason) {
  const UniqueFd library(OpenRetrying(AT_FDCWD, Locate(libraryPath).c_str(), O_RDONLY));
  if (library.IsOpen()) file_ = MakeMemoryFile();
  if (!library.IsOpen() || !file_.IsOpen() || !CopyAll(library.Get(), file_.Get())) {
    *reason = "cannot copy it for a further session: " + std::generic_category().message(errno);
    return false;
  }
  // Best effort: nobody changes what is about to be run.
  fcntl(file_.Get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL);
  return true;
}

std::string ModuleCopy::Path() const {
  return "/proc/self/fd/" + std::to_string(file_.Get());
}

}  // namespace ox::internal

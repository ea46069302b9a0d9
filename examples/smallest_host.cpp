// The smallest host: loads the module, stores one resource, finds it again.
//   smallest_host LIBRARY DIRECTORY
#include <cstdio>
#include <fstream>
#include <string>

#include <oxfilecache/host.h>

int main(int argc, char** argv) {
  if (argc != 3) return std::fputs("usage: smallest_host LIBRARY DIRECTORY\n", stderr), 2;
  // Destroyed from the last to the first: the reference, the module, the kernel.
  ox::host::PosixKernel kernel(argv[2]);
  std::string error;
  const auto module = ox::host::LoadedModule::Load(argv[1], kernel, &error);
  if (!module) return std::fprintf(stderr, "%s\n", error.c_str()), 3;
  ox::host::ManagerReference cache(*module);
  if (!cache) return std::fputs("out of memory\n", stderr), 3;
  // A start without "file-cache.conf" admits nothing, deletes what it finds, and leaves the limit
  // at 0.
  if (cache->GetMaxEntries() == 0) cache->SetMaxEntries(100);

  const OxString url("http://example/");
  if (auto* entry = cache->CreateCacheValue(url, 0, "text/plain")) {
    std::ofstream(entry->GetFile().UTF8()) << "Hello from the cache\n";
    cache->Add(entry);
  }
  auto* found = cache->Get(url);
  if (found == nullptr) return std::fputs("not found\n", stderr), 1;
  std::printf("%s: %s", found->GetMetaData().UTF8(), found->GetURL().UTF8());
  std::printf("\n%s: %lu bytes\n", found->GetFile().UTF8(), found->GetSize());
  return 0;
}

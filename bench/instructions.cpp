// Work for counting instructions under emulation: starts the module over a prepared cache and does
// one operation COUNT times. The difference between two counts is the cost of the operation alone.
//   instructions OPERATION COUNT DIRECTORY
// Operations: prepare (makes a cache of COUNT entries), hit, miss, store, digest.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "md5/md5.h"
#include <oxfilecache/host.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/manager.h>
#include <oxfilecache/module.h>

namespace {

using ox::core::cache::CacheValue;
using ox::core::cache::FileCacheManager;

// About 70 bytes, as resources of a device have them.
std::string Url(int i) {
  return "http://device.example.com/applications/player/resources/images/" +
         std::to_string(100000 + i);
}

void Store(FileCacheManager& manager, const std::string& url, const OxString& metadata) {
  const unsigned long size = 0;
  CacheValue* value = manager.CreateCacheValue(url.c_str(), size, metadata);
  if (value == nullptr) std::exit(1);
  std::ofstream(value->GetFile().UTF8()) << "content";
  if (!manager.Add(value)) std::exit(1);
}

void Digest(const std::string& url) {
  MD5_CTX context;
  unsigned char digest[16];
  MD5Init(&context);
  MD5Update(&context, reinterpret_cast<const unsigned char*>(url.data()),
            static_cast<unsigned long>(url.size()));
  MD5Final(digest, &context);
}

bool Work(FileCacheManager& manager, const std::string& operation, int count) {
  const OxString metadata(std::string(200, 'm').c_str());
  constexpr int kFirstNew = 10000;
  for (int i = 0; i < count; ++i) {
    if (operation == "prepare") {
      Store(manager, Url(i), metadata);
    } else if (operation == "store") {
      Store(manager, Url(kFirstNew + i), metadata);
    } else if (operation == "hit") {
      // Spread over the list, as lookups in no particular order are.
      if (manager.Get(Url(i * 37 % 200).c_str()) == nullptr) return false;
    } else if (operation == "miss") {
      if (manager.Get(Url(kFirstNew + i).c_str()) != nullptr) return false;
    } else if (operation == "digest") {
      Digest(Url(i));
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: instructions OPERATION COUNT DIRECTORY\n", stderr);
    return 2;
  }
  ox::host::PosixKernel kernel(argv[3]);
  ox::SetKernel(&kernel);
  auto* factory = IOxModule_ICacheManager_ModuleLoad();
  auto* manager = factory->CreateCacheManager();
  const bool isDone = Work(*manager, argv[1], std::atoi(argv[2]));
  factory->DestroyCacheManager(manager);
  IOxModule_ICacheManager_ModuleUnload(factory);
  return isDone ? 0 : 1;
}

// The Linux host: a kernel over the C library and POSIX threads, a file system over the system's
// calls, and what loads the module.
//
//   ox::host::PosixKernel kernel("/var/cache/example");
//   std::string error;
//   auto module = ox::host::LoadedModule::Load("libox_file_cache.so", kernel, &error);
//   ox::host::ManagerReference manager(*module);
//   if (manager) manager->Get("http://example/");
//
// Declared in this order they are destroyed in the order that the module needs: the reference, the
// module, the kernel.
#ifndef OXFILECACHE_HOST_H_
#define OXFILECACHE_HOST_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include <oxfilecache/file_system.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/manager.h>
#include <oxfilecache/module.h>

namespace ox::internal {
class PosixFile;
}

namespace ox::host {

// Threads: all operations from any thread.
class PosixFileSystem final : public IFileSystem {
 public:
  // The directory is taken byte for byte: a "/" at its end stays and shows in every path.
  explicit PosixFileSystem(std::string defaultDirectory);
  ~PosixFileSystem();
  PosixFileSystem(const PosixFileSystem&) = delete;
  PosixFileSystem& operator=(const PosixFileSystem&) = delete;

  os::filesystem::File* CreateFile() override;
  void DestroyFile(os::filesystem::File* file) override;
  // Makes the directory (mode 0700, parents too) when it is missing. 0, and `out` empty, when that
  // fails.
  int GetDefaultDirectory(OxString& out) override;

  // Lets go of the directories that file objects hold for the next use. For when there will be none
  // soon: a held directory keeps its file system from being unmounted.
  void LeaveDirectories();

  // File objects made and not yet destroyed.
  std::uint64_t LiveFiles() const;

 private:
  // For the next CreateFile, as far as there is room.
  void Keep(internal::PosixFile* file);

  std::string defaultDirectory_;
  // Objects for the next CreateFile. A start needs three at once, and a null there would make it go
  // on without its configuration, so these are made beforehand.
  static constexpr std::size_t kSpares = 3;
  std::atomic<internal::PosixFile*> spares_[kSpares];
  std::atomic<std::uint64_t> objects_{kSpares};
};

// What the module holds of the host, and what it has asked for since the start.
struct KernelCounts {
  std::uint64_t blocks;       // live blocks of memory
  std::uint64_t bytes;        // live bytes, as asked for
  std::uint64_t mutexes;      // live mutexes
  std::uint64_t files;        // live file objects of the kernel's own file system
  std::uint64_t allocations;  // successful requests since the start
};

// Threads: all operations from any thread. The kernel must outlive the module and every string.
class PosixKernel final : public IOxKernel {
 public:
  // `defaultDirectory` is where "file-cache.conf" is looked for and, unless that names another
  // directory, where the cache lives. Taken byte for byte.
  explicit PosixKernel(std::string defaultDirectory);

  // Puts another file system in the place of the kernel's own, for example one that wraps it.
  // Before the first manager; not owned.
  void UseFileSystem(IFileSystem* fileSystem) { fileSystem_ = fileSystem; }
  PosixFileSystem& OwnFileSystem() { return ownFileSystem_; }

  KernelCounts Counts() const;

  void* GetInterface(const char* name) override;
  void ReleaseInterface(void* interface) override;
  IOxMutex* CreateMutex() override;
  void DestroyMutex(IOxMutex* mutex) override;
  void* Allocate(std::size_t bytes, const char* file, int line) override;
  void Free(void* block, const char* file, int line) override;
  void* MemSet(void* dst, int value, std::size_t bytes) override;
  void* MemCopy(void* dst, const void* src, std::size_t bytes) override;
  std::size_t StrLen16(const std::uint16_t* text) override;
  std::size_t StrLen(const char* text) override;
  int StrCmp(const char* a, const char* b) override;
  char* StrCpy(char* dst, const char* src) override;
  const char* StrStr(const char* haystack, const char* needle) override;
  unsigned long StrToUL(const char* text, char** end, int base) override;

 private:
  PosixFileSystem ownFileSystem_;
  IFileSystem* fileSystem_;
  std::atomic<std::uint64_t> allocations_{0};
  std::atomic<std::uint64_t> frees_{0};
  std::atomic<std::uint64_t> bytes_{0};
  std::atomic<std::uint64_t> mutexes_{0};
};

class LoadedModule {
 public:
  // Opens the shared library, sets the kernel of this program's own strings, hands the kernel over
  // and makes the factory. Null, with the reason in `error`, when the library cannot be opened,
  // lacks an entry point, or is held by another kernel already: a loaded module keeps its first.
  static std::unique_ptr<LoadedModule> Load(const std::string& path, IOxKernel& kernel,
                                            std::string* error);
  // Destroys the factory and closes the library. Every manager reference must be gone.
  ~LoadedModule();
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  core::cache::ICacheManager& Factory() { return *factory_; }

 private:
  struct CloseLibrary {
    void operator()(void* handle) const;
  };
  using LibraryHandle = std::unique_ptr<void, CloseLibrary>;
  using Unload = void (*)(core::cache::ICacheManager*);

  LoadedModule(LibraryHandle library, Unload unload);

  LibraryHandle library_;
  core::cache::ICacheManager* factory_;
  Unload unload_;
};

// One reference to the cache manager.
class ManagerReference {
 public:
  // Starts the manager when it is the first reference: reads the configuration and scans the cache.
  explicit ManagerReference(LoadedModule& module);
  ~ManagerReference();
  ManagerReference(const ManagerReference&) = delete;
  ManagerReference& operator=(const ManagerReference&) = delete;

  // False when memory ran out.
  explicit operator bool() const { return manager_ != nullptr; }
  core::cache::FileCacheManager* operator->() const { return manager_; }
  core::cache::FileCacheManager& operator*() const { return *manager_; }

 private:
  core::cache::ICacheManager& factory_;
  core::cache::FileCacheManager* manager_;
};

}  // namespace ox::host

#endif

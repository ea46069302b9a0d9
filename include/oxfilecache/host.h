// The Linux host: a kernel made of the C library and POSIX threads, a file system made of system
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

#include <cstdint>
#include <memory>
#include <string>

#include <oxfilecache/file_system.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/manager.h>
#include <oxfilecache/module.h>

namespace ox::host {

// The files of this system, as the module sees them. New files have mode 0600. Only regular files
// are read and written, and no symbolic link under a file's name is followed.
//
// The last directories that files were looked up in stay open (CloseDirectories).
//
// Threads: all operations from any thread; each file object on one thread at a time.
class PosixFileSystem final : public IFileSystem {
 public:
  // The directory is taken byte for byte: a "/" at its end stays and shows in every path. Throws
  // std::bad_alloc.
  explicit PosixFileSystem(std::string defaultDirectory);
  // Every file object must have been destroyed.
  ~PosixFileSystem();
  PosixFileSystem(const PosixFileSystem&) = delete;
  PosixFileSystem& operator=(const PosixFileSystem&) = delete;

  // Null when memory runs out. That cannot happen to the first three objects that are in use at the
  // same time.
  os::filesystem::File* CreateFile() override;
  // Closes the file and takes the object back, which must be from CreateFile of this file system.
  // Null does nothing.
  void DestroyFile(os::filesystem::File* file) override;
  // Makes the directory when it is missing, with mode 0700; its missing parents get 0777 less the
  // umask. 0, and `out` empty, when that fails.
  int GetDefaultDirectory(OxString& out) override;

  // Closes the directories that no operation uses at the moment; they are opened again when they
  // are needed. An open directory keeps its file system from being unmounted.
  void CloseDirectories();

 private:
  class FileObjects;

  std::string defaultDirectory_;
  std::unique_ptr<FileObjects> files_;
};

// Memory, mutexes, text operations and files for the module: malloc, POSIX threads, the C library
// and a PosixFileSystem.
//
// Threads: all operations from any thread, UseFileSystem excepted. The kernel must outlive the
// module and every OxString.
class PosixKernel final : public IOxKernel {
 public:
  // `defaultDirectory` is where "file-cache.conf" is looked for and, unless that names another
  // directory, where the cache lives. Taken byte for byte. Throws std::bad_alloc.
  explicit PosixKernel(std::string defaultDirectory);

  // Puts another file system in the place of the kernel's own, for example one that wraps it. To be
  // called before the first manager is made. It is not owned and must outlive every manager.
  void UseFileSystem(IFileSystem* fileSystem) { fileSystem_ = fileSystem; }
  // The file system that the kernel was made with, also when UseFileSystem put another one in its
  // place. The kernel owns it.
  PosixFileSystem& OwnFileSystem() { return ownFileSystem_; }

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
};

// The module's shared library, loaded into this process, and its factory.
//
// Threads: Load and the destructor on one thread at a time.
class LoadedModule {
 public:
  // Opens the shared library, hands the kernel to it and to this program's own strings
  // (SetKernel), and makes the factory. The kernel is not owned.
  //
  // Null, with the reason in `error`, when the library cannot be opened, lacks an entry point, or
  // has another kernel already: as long as a module stays loaded it keeps the first that it was
  // given.
  static std::unique_ptr<LoadedModule> Load(const std::string& path, IOxKernel& kernel,
                                            std::string* error);
  // As Load, but leaves this program's own strings with the kernel that they have (SetKernel). For
  // a further copy of the module beside the first: a library from another file, with a kernel of
  // its own. Each kernel must take back the memory that another one gave, as those of PosixKernel
  // do.
  //
  // Threads: any.
  static std::unique_ptr<LoadedModule> LoadFurther(const std::string& path, IOxKernel& kernel,
                                                   std::string* error);
  // Destroys the factory and closes the library. Every ManagerReference must be gone.
  ~LoadedModule();
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  // The module's factory, which makes the manager. Owned by this object and valid as long as it is;
  // ManagerReference takes it from here.
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

// One reference to the cache manager, of which a module has at most one. The module must outlive
// the reference.
//
// Threads: as FileCacheManager; several references may be made and destroyed at the same time.
class ManagerReference {
 public:
  // The first reference starts the manager, which reads the configuration and scans the cache.
  explicit ManagerReference(LoadedModule& module);
  // The last one stops it.
  ~ManagerReference();
  ManagerReference(const ManagerReference&) = delete;
  ManagerReference& operator=(const ManagerReference&) = delete;

  // False when memory ran out during the start, or the host had no file object for it. There is no
  // manager then.
  explicit operator bool() const { return manager_ != nullptr; }
  // The manager, null where the reference is false. Do not delete it.
  core::cache::FileCacheManager* operator->() const { return manager_; }
  // The manager. Only where the reference is true.
  core::cache::FileCacheManager& operator*() const { return *manager_; }

 private:
  core::cache::ICacheManager& factory_;
  core::cache::FileCacheManager* manager_;
};

}  // namespace ox::host

#endif

// The exported entry points of libox_file_cache.so. Beside these, only IOxKernel::GetKernel is
// exported.
//
// Order: PutKernel, ModuleLoad, any use of the factory, ModuleUnload. PutKernel and ModuleLoad take
// no lock and belong on one thread before any other use.
#ifndef OX_MODULE_ENTRY_POINTS_H_
#define OX_MODULE_ENTRY_POINTS_H_

#include "module/icache_manager.h"
#include "module/ox_kernel.h"

extern "C" {

// Stores the kernel unless one is stored already: the first stays for the life of the process.
__attribute__((visibility("default"))) void IOxModule_OxModule_PutKernel(IOxKernel* kernel);

// A new factory, to be given back with ModuleUnload; null when memory runs out or no kernel is set.
__attribute__((visibility("default"))) ox::core::cache::ICacheManager*
IOxModule_ICacheManager_ModuleLoad();

// Destroys the factory; null is allowed. Every manager reference must have been given back before.
__attribute__((visibility("default"))) void IOxModule_ICacheManager_ModuleUnload(
    ox::core::cache::ICacheManager* module);
}

#endif

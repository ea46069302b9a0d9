// What a shared library exports to have its host checked by oxhostcheck.
#ifndef OX_HOST_CHECK_HOST_CHECK_LIBRARY_H_
#define OX_HOST_CHECK_HOST_CHECK_LIBRARY_H_

#include "module/ox_kernel.h"

extern "C" {

// A kernel whose IFileSystem has `directory`, an existing directory, as its default directory; null
// when none can be made. Called once in each process that loads the library. The text is valid
// during the call only.
__attribute__((visibility("default"))) IOxKernel* OxHostCheck_GetKernel(const char* directory);

// Optional: takes back what OxHostCheck_GetKernel gave.
__attribute__((visibility("default"))) void OxHostCheck_ReleaseKernel(IOxKernel* kernel);
}

#endif

// The kernel pointer of this copy of the runtime code.
//
// The module and each host link their own copy, so each has its own pointer. Both must point at the
// same kernel while strings cross between them.
#ifndef OX_MODULE_KERNEL_ACCESS_H_
#define OX_MODULE_KERNEL_ACCESS_H_

#include "module/ox_kernel.h"

namespace ox {

// Null until SetKernel. Inside the module only PutKernel sets it.
IOxKernel* Kernel();

// A host calls this once, before its first OxString or tagged allocation. Takes no lock.
void SetKernel(IOxKernel* kernel);

}  // namespace ox

#endif

#include "cache/module_services.h"

namespace ox::core::cache {

ModuleServices services = {nullptr, nullptr, false};

}  // namespace ox::core::cache

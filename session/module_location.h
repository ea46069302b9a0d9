// Where the module is when nobody names it.
#ifndef OX_SESSION_MODULE_LOCATION_H_
#define OX_SESSION_MODULE_LOCATION_H_

#include <string>

namespace ox::internal {

// The first of these that can be read: the module beside the executable, in the library directory
// of the prefix that the executable is installed in, and where this library was configured to
// install it. Otherwise its bare name, for the loader to find.
std::string DefaultModulePath();

}  // namespace ox::internal

#endif

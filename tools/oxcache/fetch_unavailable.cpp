#include "tools/oxcache/fetch.h"

namespace ox::tool {

ExitStatus Fetch(Context& context, const FetchOptions& /*options*/) {
  return context.Fail(host::MakeError(host::ErrorKind::kRefused,
                                      "this oxcache was built without libcurl, which fetch needs"));
}

}  // namespace ox::tool

#include "tools/oxcache/fetch.h"

namespace ox::tools {

ExitStatus Fetch(Context& context, const FetchOptions& /*options*/, bool /*json*/) {
  return context.Fail(
      MakeError(ErrorKind::kRefused, "this oxcache was built without libcurl, which fetch needs"));
}

}  // namespace ox::tools

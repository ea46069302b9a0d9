#include "session/entry_name.h"

#include "session/digest.h"
#include "session/utf8.h"
#include <oxfilecache/format.h>

namespace ox::internal {

Error CheckUrl(const std::string& url) {
  if (!url.empty() && IsStrictUtf8(url)) return {};
  return MakeError(ErrorKind::kInvalidArgument, "the URL is empty, not UTF-8, or contains NUL");
}

Error NoEntry() {
  return MakeError(ErrorKind::kNotFound, "no entry of that URL");
}

std::string ContentName(const std::string& url) {
  std::string name(format::kContentNameLength, '\0');
  format::WriteContentName(Md5(url).data(), name.data());
  return name;
}

}  // namespace ox::internal

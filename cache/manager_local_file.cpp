// From a URL to the content file: cache directory, "/", and the MD5 digest of the URL's UTF-8 form.
#include "cache/file_cache_manager_impl.h"
#include "md5/md5.h"

namespace ox::core::cache {
namespace {

constexpr std::size_t kDigestBytes = 16;
constexpr std::size_t kNameLength = 2 * kDigestBytes;

// Low nibble first, the reverse of the usual notation: every name on disk is written so.
void RenderName(const unsigned char* digest, char* name) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  for (std::size_t i = 0; i < kDigestBytes; ++i) {
    *name++ = kDigits[digest[i] & 0x0F];
    *name++ = kDigits[digest[i] >> 4];
  }
  *name = '\0';
}

}  // namespace

void FileCacheManagerImpl::GetLocalFileFromURL(const OxString& url, OxString& localFile) {
  const char* text = url.UTF8();
  const std::size_t length = kernel->StrLen(text);

  MD5_CTX context;
  unsigned char digest[kDigestBytes];
  MD5Init(&context);
  MD5Update(&context, reinterpret_cast<const unsigned char*>(text),
            static_cast<unsigned long>(length));
  MD5Final(digest, &context);

  // Always a separator, also after a directory that is empty or ends in one: scanned paths are
  // compared with this text as it stands.
  char name[1 + kNameLength + 1];
  name[0] = '/';
  RenderName(digest, name + 1);

  localFile = OxString();
  localFile.Reserve(cacheDirectory.Length() + 1 + kNameLength);
  if (!cacheDirectory.IsEmpty()) localFile.Append(cacheDirectory);
  localFile.Append(name);
}

}  // namespace ox::core::cache

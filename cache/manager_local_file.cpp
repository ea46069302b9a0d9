// From a URL to the content file: cache directory, "/", and the MD5 digest of the URL's UTF-8 form.
#include "cache/file_cache_manager_impl.h"
#include "md5/md5.h"

namespace ox::core::cache {
void FileCacheManagerImpl::RenderLocalName(const OxString& url, LocalName* name) const {
  const char* text = url.UTF8();
  const std::size_t length = kernel->StrLen(text);

  MD5_CTX context;
  unsigned char digest[format::kDigestBytes];
  MD5Init(&context);
  MD5Update(&context, reinterpret_cast<const unsigned char*>(text),
            static_cast<unsigned long>(length));
  MD5Final(digest, &context);

  // Always a separator, also after a directory that is empty or ends in one: scanned paths are
  // compared with this text byte for byte.
  char* out = name->text;
  *out++ = '/';
  *format::WriteContentName(digest, out) = '\0';
}

// The two forms of a path. Each is the directory's text up to its first zero unit, then the name.
// Entries keep the first form and are looked up by the second.
void FileCacheManagerImpl::GetLocalFileFromURL(const OxString& url, OxString& localFile) {
  LocalName name;
  RenderLocalName(url, &name);
  localFile = OxString();
  localFile.Reserve(cacheDirectory.Length() + LocalName::kLength);
  if (!cacheDirectory.IsEmpty()) localFile.Append(cacheDirectory);
  localFile.Append(name.text);
}

JoinedPath FileCacheManagerImpl::GetLocalPathFromURL(const OxString& url) const {
  LocalName name;
  RenderLocalName(url, &name);
  return JoinedPath(cacheDirectory, name.text);
}

}  // namespace ox::core::cache

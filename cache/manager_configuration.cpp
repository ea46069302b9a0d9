// "file-cache.conf": the three limits and the cache directory.
//
// Each key is looked for anywhere in the first 1024 bytes, on its own: no comments, no anchoring,
// the first occurrence wins. Configuration files on devices rely on every leniency below.
#include "cache/file_cache_manager_impl.h"
#include "cache/file_object.h"
#include <oxfilecache/format.h>

namespace ox::core::cache {
namespace {

constexpr std::uint32_t kDefaultMaxSize = 1048576;
constexpr std::uint32_t kDefaultMaxEntrySize = 65536;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsLineEnd(char c) {
  return c == '\n' || c == '\r' || c == '\0';
}

void RaiseTo(std::uint32_t floor, Relaxed<std::uint32_t>& limit) {
  if (limit < floor) limit = floor;
}

}  // namespace

bool FileCacheManagerImpl::Configure() {
  // 0 means none, not unlimited: products switch the cache off by leaving the key out.
  maxEntries = 0;
  maxEntrySize = kDefaultMaxEntrySize;
  maxSize = kDefaultMaxSize;

  const char* path = configFilePath.UTF8();
  const bool isOpened = path[0] != '\0' && ReadConfigurationFile(path);

  RaiseTo(format::kMinSize, maxSize);
  RaiseTo(format::kMinSize, maxEntrySize);
  return isOpened;
}

bool FileCacheManagerImpl::ReadConfigurationFile(const char* path) {
  os::filesystem::File* file = MakeFile();
  if (file == nullptr) return false;
  file->SetPath(path);
  const bool isOpened = file->Exists() != 0 && file->Open(os::filesystem::File::kOpenRead) != 0;
  if (isOpened) {
    TextBuffer buffer;
    if (ReadText(*file, &buffer) != 0) ParseConfiguration(buffer.text);
  }
  services.fileSystem->DestroyFile(file);
  return isOpened;
}

void FileCacheManagerImpl::ParseConfiguration(const char* text) {
  ReadLimit(text, "MAX_CACHE_SIZE", maxSize);
  ReadLimit(text, "MAX_CACHE_ENTRIES", maxEntries);
  ReadLimit(text, "MAX_CACHE_ENTRY_SIZE", maxEntrySize);
  ReadString(text, "CACHE_DIRECTORY", cacheDirectory);
}

void FileCacheManagerImpl::ReadLimit(const char* text, const char* key,
                                     Relaxed<std::uint32_t>& limit) {
  unsigned long value = limit;
  ReadNumber(text, key, value);
  limit = Saturate32(value);
}

void FileCacheManagerImpl::ReadNumber(const char* text, const char* key, unsigned long& value) {
  const char* p = kernel->StrStr(text, key);
  if (p == nullptr) return;
  p += kernel->StrLen(key);
  // Anything may stand before the number: "=", blanks, even letters.
  while (!IsDigit(*p) && *p != '\0' && *p != '\n' && *p != '-')
    ++p;
  value = *p == '\n' || *p == '-' ? 0 : kernel->StrToUL(p, nullptr, 10);
}

void FileCacheManagerImpl::ReadString(const char* text, const char* key, OxString& value) {
  const char* p = kernel->StrStr(text, key);
  if (p == nullptr) return;
  p += kernel->StrLen(key);
  while (*p != '=' && *p != '\n' && *p != '\0')
    ++p;
  if (*p != '=') return;
  ++p;
  while (*p == ' ' || *p == '\t')
    ++p;
  // An empty value before a bare LF keeps the directory; before CR LF or the end of the text it
  // empties the directory. Files from both kinds of systems have always been read this way.
  if (*p == '\n') return;
  const char* end = p;
  while (!IsLineEnd(*end))
    ++end;
  // The value alone is decoded: a sequence that its end cuts short reads zeros, not the next line.
  const auto count = static_cast<std::size_t>(end - p);
  value.AssignUTF8(p, count, count);
}

}  // namespace ox::core::cache

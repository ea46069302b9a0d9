#include <oxfilecache/ox_error.h>

OxError::OxError(const char* name, unsigned long code) : code_(static_cast<std::uint32_t>(code)) {
  strncpyTerm(name_, name, kNameBytes);
}

OxError::~OxError() = default;

void OxError::strncpyTerm(char* dst, const char* src, unsigned long size) {
  if (size == 0) return;
  unsigned long i = 0;
  while (i < size - 1 && src[i] != '\0') {
    dst[i] = src[i];
    ++i;
  }
  dst[i] = '\0';
}

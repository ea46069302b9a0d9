// Error values of the framework: a name and a code. No operation of the cache returns one; hosts
// and other modules of the framework use them.
#ifndef OXFILECACHE_OX_ERROR_H_
#define OXFILECACHE_OX_ERROR_H_

#include <cstdint>

class OxError {
 public:
  // Keeps the first 31 characters of `name`. The code is kept in 32 bits.
  OxError(const char* name, unsigned long code);
  OxError(const OxError&) = default;
  OxError& operator=(const OxError&) = default;
  virtual ~OxError();

  const char* Name() const { return name_; }
  unsigned long Code() const { return code_; }

  // Copies at most size - 1 characters and always ends `dst` with a NUL; a size of 0 writes
  // nothing.
  static void strncpyTerm(char* dst, const char* src, unsigned long size);

 private:
  static constexpr unsigned long kNameBytes = 32;

  char name_[kNameBytes];
  std::uint32_t code_;
};

// Each translation unit that includes this header has its own copies.
const OxError OxError_OK("OxError_OK", 0);
const OxError OxError_NoMemory("OxError_NoMemory", 1);
const OxError OxError_Timeout("OxError_Timeout", 2);
const OxError OxError_Generic("OxError_Generic", 3);
const OxError OxError_NotFound("OxError_NotFound", 4);
const OxError OxError_Usage("OxError_Usage", 5);
const OxError OxError_InvalidParameters("OxError_InvalidParameters", 6);

#endif

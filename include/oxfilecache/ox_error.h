// Error values of the framework: a name and a code. No operation of the cache returns one; hosts
// and other modules of the framework use them.
#ifndef OXFILECACHE_OX_ERROR_H_
#define OXFILECACHE_OX_ERROR_H_

#include <cstdint>

// A name and a code. A plain value: it can be copied and keeps its own copy of the name.
//
// The runtime library is built without type information (RTTI). A program that is compiled with it
// cannot throw an OxError, by value or by pointer, nor derive from it: that does not link. Throw a
// type of your own that holds one, or compile that file with -fno-rtti.
//
// Threads: as any plain value.
class OxError {
 public:
  // Keeps the first 31 characters of `name`. The code is kept in 32 bits.
  OxError(const char* name, unsigned long code);
  OxError(const OxError&) = default;
  OxError& operator=(const OxError&) = default;
  virtual ~OxError();

  // Valid as long as this object.
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

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
  // A copy of name and code.
  OxError(const OxError&) = default;
  // A copy of name and code.
  OxError& operator=(const OxError&) = default;
  virtual ~OxError();

  // The name, at most 31 characters. Valid as long as this object, and until it is assigned to.
  const char* Name() const { return name_; }
  // The code, its low 32 bits.
  unsigned long Code() const { return code_; }

  // Copies at most size - 1 characters and always ends `dst` with a NUL; a size of 0 writes
  // nothing.
  static void strncpyTerm(char* dst, const char* src, unsigned long size);

 private:
  static constexpr unsigned long kNameBytes = 32;

  char name_[kNameBytes];
  std::uint32_t code_;
};

// Success. Each translation unit that includes this header has its own copies of these seven.
const OxError OxError_OK("OxError_OK", 0);
// Memory ran out.
const OxError OxError_NoMemory("OxError_NoMemory", 1);
// Something took longer than it may.
const OxError OxError_Timeout("OxError_Timeout", 2);
// An error that none of the others names.
const OxError OxError_Generic("OxError_Generic", 3);
// What was asked for is not there.
const OxError OxError_NotFound("OxError_NotFound", 4);
// An operation was called when it may not be.
const OxError OxError_Usage("OxError_Usage", 5);
// An argument has a value that it may not have.
const OxError OxError_InvalidParameters("OxError_InvalidParameters", 6);

#endif

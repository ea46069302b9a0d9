// The border between the session, whose steps allocate, and its users, who get errors as values.
#ifndef OX_SESSION_WITHOUT_EXCEPTIONS_H_
#define OX_SESSION_WITHOUT_EXCEPTIONS_H_

#include <new>

#include <oxfilecache/error.h>

namespace ox::internal {

// Runs a step that returns an Error; kOutOfMemory when memory ran out in it.
template <typename Step>
Error WithoutExceptions(Step step) {
  try {
    return step();
  } catch (const std::bad_alloc&) {
    return {ErrorKind::kOutOfMemory, {}, {}, 0};
  }
}

}  // namespace ox::internal

#endif

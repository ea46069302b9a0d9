// Descriptors 0 to 2 of a program that was started with some of them closed.
#ifndef OX_HOSTCHECK_STANDARD_DESCRIPTORS_H_
#define OX_HOSTCHECK_STANDARD_DESCRIPTORS_H_

#include <fcntl.h>
#include <unistd.h>

namespace ox::hostcheck {

// The next file opened would take the place of a closed one and get what is printed. What is put
// there instead fails every read and write as a closed descriptor does.
inline void OccupyStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) static_cast<void>(open("/", O_PATH));
  }
}

}  // namespace ox::hostcheck

#endif

// What the program does when a signal ends it.
#ifndef OX_TOOLS_OXCACHE_SIGNALS_H_
#define OX_TOOLS_OXCACHE_SIGNALS_H_

#include <string>

namespace ox::tools {

// To be called once, before any thread starts. SIGINT, SIGTERM and SIGHUP then delete the files
// that a DeletedOnSignal names and end the program, unless the caller of the program had them
// ignored. A write to a pipe without a reader, or beyond the largest file that the user may make,
// becomes an error of that write, so that the session can be closed.
void PrepareForSignals();

// Whether a write to a pipe without a reader ends a program such as cat here, which it does unless
// the caller of the program had SIGPIPE ignored.
bool LostReaderEndsProgram();

// Ends the program as the system does when the reader of a pipe is gone.
void EndForLostReader();

// While it exists, a signal deletes the file. Threads: any.
class DeletedOnSignal {
 public:
  // The directory is an open descriptor that stays open as long as this object.
  DeletedOnSignal(int directory, const std::string& name);
  ~DeletedOnSignal();
  DeletedOnSignal(const DeletedOnSignal&) = delete;
  DeletedOnSignal& operator=(const DeletedOnSignal&) = delete;

 private:
  struct Slot* slot_ = nullptr;
};

}  // namespace ox::tools

#endif

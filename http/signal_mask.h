// Signals and the threads of the library.
#ifndef OX_HTTP_SIGNAL_MASK_H_
#define OX_HTTP_SIGNAL_MASK_H_

namespace ox::internal::http {

// Leaves the program's signals to the program's threads. Those of a fault stay with the calling
// thread, which made it.
void BlockSignals();

}  // namespace ox::internal::http

#endif

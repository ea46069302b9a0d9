#include "http/signal_mask.h"

#include <csignal>
#include <initializer_list>

namespace ox::internal::http {

void BlockSignals() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
    sigdelset(&signals, fault);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace ox::internal::http

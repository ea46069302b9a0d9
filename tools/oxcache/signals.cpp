#include "tools/oxcache/signals.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstring>

namespace ox::tools {

// Read by the signal handler, which may neither lock nor allocate.
struct Slot {
  std::atomic<bool> isTaken{false};
  std::atomic<bool> isFilled{false};
  int directory = -1;
  std::array<char, 64> name{};
};

namespace {

// More than the files that are written at one time, at most one for each of 64 downloads.
std::array<Slot, 80> slots;

bool lostReaderEnds = true;

// A slot may name a file that has just been put in place. Nothing is deleted then, because the
// temporary name is random and no longer exists.
void DeleteFilesAndEnd(int signal) {
  for (const Slot& slot : slots) {
    if (slot.isFilled.load()) unlinkat(slot.directory, slot.name.data(), 0);
  }
  // Takes effect when this handler returns.
  std::signal(signal, SIG_DFL);
  static_cast<void>(std::raise(signal));
}

bool IsIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

void PrepareForSignals() {
  lostReaderEnds = !IsIgnored(SIGPIPE);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (!IsIgnored(signal)) std::signal(signal, DeleteFilesAndEnd);
  }
}

bool LostReaderEndsProgram() {
  return lostReaderEnds;
}

void EndForLostReader() {
  std::signal(SIGPIPE, SIG_DFL);
  static_cast<void>(std::raise(SIGPIPE));
}

DeletedOnSignal::DeletedOnSignal(int directory, const std::string& name) {
  for (Slot& slot : slots) {
    if (name.size() >= slot.name.size() || slot.isTaken.exchange(true)) continue;
    slot.directory = directory;
    std::memcpy(slot.name.data(), name.c_str(), name.size() + 1);
    slot.isFilled = true;
    slot_ = &slot;
    return;
  }
}

DeletedOnSignal::~DeletedOnSignal() {
  if (slot_ == nullptr) return;
  slot_->isFilled = false;
  slot_->isTaken = false;
}

}  // namespace ox::tools

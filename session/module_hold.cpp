#include "session/module_hold.h"

#include <deque>
#include <utility>

#include "host/mutex.h"
#include "session/module_location.h"

namespace ox::internal {

struct ModuleHold::Seat {
  host::PosixKernel kernel{""};
  bool isFirst = false;  // its kernel is the one of the shared library and of all strings
  bool isTaken = false;
};

class ModuleHold::Seats {
 public:
  static Seats& OfProcess() {
    static Seats& seats = *new Seats;
    return seats;
  }

  Seat& Take() OX_REQUIRES(mutex) {
    for (Seat& seat : seats_) {
      if (std::exchange(seat.isTaken, true)) continue;
      return seat;
    }
    Seat& seat = seats_.emplace_back();
    seat.isFirst = seats_.size() == 1;
    seat.isTaken = true;
    return seat;
  }

  Mutex mutex;

 private:
  std::deque<Seat> seats_ OX_GUARDED_BY(mutex);
};

std::unique_ptr<ModuleHold> ModuleHold::Take(const std::string& wanted, Error* error) {
  const std::string path = wanted.empty() ? DefaultModulePath() : wanted;
  std::string reason;
  // Declared before the lock: its destructor takes the same mutex.
  std::unique_ptr<ModuleHold> hold;
  Seats& seats = Seats::OfProcess();
  const MutexLock lock(seats.mutex);
  hold.reset(new ModuleHold(seats.Take()));
  if (hold->Load(path, &reason)) return hold;
  *error = MakeError(ErrorKind::kModule, "cannot load the module: " + reason);
  error->path = path;
  return nullptr;
}

bool ModuleHold::Load(const std::string& path, std::string* reason) {
  if (seat_.isFirst) {
    module_ = host::LoadedModule::LoadFurther(path, seat_.kernel, reason);
    // Written only where it differs: other sessions read it at the same time.
    if (module_ != nullptr && Kernel() != &seat_.kernel) SetKernel(&seat_.kernel);
  } else if (copy_.Make(path, reason)) {
    module_ = host::LoadedModule::LoadFurther(copy_.Path(), seat_.kernel, reason);
  }
  return module_ != nullptr;
}

ModuleHold::~ModuleHold() {
  const MutexLock lock(Seats::OfProcess().mutex);
  module_.reset();
  seat_.isTaken = false;
}

void ModuleHold::UseFileSystem(IFileSystem& fileSystem) {
  seat_.kernel.UseFileSystem(&fileSystem);
}

}  // namespace ox::internal

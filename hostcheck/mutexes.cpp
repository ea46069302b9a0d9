// Mutexes. A thread that hangs in a broken mutex is left behind; the process of the check ends all
// the same.
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <utility>

#include "hostcheck/check.h"
#include <oxfilecache/mutex.h>

namespace ox::hostcheck::internal {
namespace {

// Long enough for a thread that is not kept out to get through.
constexpr std::chrono::milliseconds kHeldBack{100};

// A step on a thread of its own, to be waited for.
class Step {
 public:
  // Returns when the thread runs, so that a wait for it depends on the mutex and not on how busy
  // the machine is.
  explicit Step(std::function<void()> step) {
    auto running = std::make_shared<std::promise<void>>();
    std::future<void> isRunning = running->get_future();
    std::packaged_task<void()> task([running, step = std::move(step)] {
      running->set_value();
      step();
    });
    done_ = task.get_future();
    std::thread(std::move(task)).detach();
    isRunning.wait();
  }

  bool IsDoneWithin(std::chrono::milliseconds time) {
    return done_.wait_for(time) == std::future_status::ready;
  }

 private:
  std::future<void> done_;
};

IOxMutex* CreateOrThrow(Run& run) {
  IOxMutex* mutex = run.Kernel().CreateMutex();
  Expect(mutex != nullptr, "CreateMutex gave null");
  return mutex;
}

void LockAndUnlock(IOxMutex* mutex) {
  mutex->Lock();
  mutex->Unlock();
}

// On another thread: a recursive mutex that its maker holds would not keep the maker out.
void IsUnlocked(Run& run) {
  IOxMutex* mutex = CreateOrThrow(run);
  Step other([=] { LockAndUnlock(mutex); });
  Expect(other.IsDoneWithin(run.Patience()), "a new mutex could not be locked by another thread");
  run.Kernel().DestroyMutex(mutex);
}

void IsItsOwn(Run& run) {
  IOxMutex* first = CreateOrThrow(run);
  IOxMutex* second = CreateOrThrow(run);
  first->Lock();
  Step other([=] { LockAndUnlock(second); });
  Expect(other.IsDoneWithin(run.Patience()), "locking one mutex locked another one too");
  first->Unlock();
  run.Kernel().DestroyMutex(second);
  run.Kernel().DestroyMutex(first);
}

void KeepsOthersOut(Run& run) {
  IOxMutex* mutex = CreateOrThrow(run);
  mutex->Lock();
  Step other([=] { LockAndUnlock(mutex); });
  Expect(!other.IsDoneWithin(kHeldBack), "another thread got in while the mutex was held");
  mutex->Unlock();
  Expect(other.IsDoneWithin(run.Patience()), "another thread did not get in after Unlock");
  run.Kernel().DestroyMutex(mutex);
}

void LetsHolderIn(Run& run) {
  IOxMutex* mutex = CreateOrThrow(run);
  Step holder([=] {
    mutex->Lock();
    LockAndUnlock(mutex);
    mutex->Unlock();
  });
  Expect(holder.IsDoneWithin(run.Patience()),
         "the second Lock of the same thread did not come back: the mutex is not recursive");
  run.Kernel().DestroyMutex(mutex);
}

void CountsLocks(Run& run) {
  IOxMutex* mutex = CreateOrThrow(run);
  for (int i = 0; i < 3; ++i)
    mutex->Lock();
  mutex->Unlock();
  mutex->Unlock();
  Step other([=] { LockAndUnlock(mutex); });
  Expect(!other.IsDoneWithin(kHeldBack), "another thread got in after 3 Locks and 2 Unlocks");
  mutex->Unlock();
  Expect(other.IsDoneWithin(run.Patience()),
         "another thread did not get in after 3 Locks and 3 Unlocks");
  run.Kernel().DestroyMutex(mutex);
}

constexpr char kGivesUnlocked[] = "CreateMutex: gives an unlocked mutex";
constexpr char kKeepsOthersOut[] = "Lock: keeps other threads out until Unlock";
constexpr char kLetsHolderIn[] = "Lock: lets the thread that holds the mutex in again";

}  // namespace

Checks MutexChecks() {
  return {
      {kGivesUnlocked, {}, IsUnlocked},
      {"CreateMutex: gives a mutex of its own each time", {kGivesUnlocked}, IsItsOwn},
      {kKeepsOthersOut, {kGivesUnlocked}, KeepsOthersOut},
      {kLetsHolderIn, {kGivesUnlocked}, LetsHolderIn},
      {"Unlock: lets others in after as many calls as Lock",
       {kKeepsOthersOut, kLetsHolderIn},
       CountsLocks},
  };
}

}  // namespace ox::hostcheck::internal

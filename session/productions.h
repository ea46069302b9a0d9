// Entries that FetchOrStore is producing at the moment: one thread for each, others wait for it.
#ifndef OX_SESSION_PRODUCTIONS_H_
#define OX_SESSION_PRODUCTIONS_H_

#include <map>
#include <memory>
#include <string>
#include <thread>

#include "host/mutex.h"
#include <oxfilecache/error.h>

namespace ox::internal {

class Productions {
 public:
  // The production of one URL, shared by its producer and those that wait.
  struct Production {
    std::thread::id producer;
    bool isOver = false;
    Error error;
  };

  // True when the calling thread is to produce the entry: it must call Finish, whatever happens.
  // Otherwise waits until the thread that is producing it is done, and gives its error;
  // kInvalidArgument where that would wait for ever, since that thread waits for this one, or is
  // this one.
  bool Begin(const std::string& url, Error* error);
  // Throws nothing.
  void Finish(const std::string& url, Error error);

 private:
  bool WouldWaitForItself(const Production& production) const OX_REQUIRES(mutex_);

  Mutex mutex_;
  Condition finished_;
  std::map<std::string, std::shared_ptr<Production>> running_ OX_GUARDED_BY(mutex_);
  // What each waiting thread waits for.
  std::map<std::thread::id, std::shared_ptr<const Production>> waiting_ OX_GUARDED_BY(mutex_);
};

}  // namespace ox::internal

#endif

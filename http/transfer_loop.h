// The one thread that moves the bytes of all connections of a client, and their pool.
#ifndef OX_HTTP_TRANSFER_LOOP_H_
#define OX_HTTP_TRANSFER_LOOP_H_

#include <curl/curl.h>

#include <memory>
#include <thread>
#include <vector>

#include "host/mutex.h"
#include <oxfilecache/error.h>

namespace ox::internal::http {

// What the loop moves. Called on the loop's thread.
class LoopMember {
 public:
  virtual CURL* Handle() = 0;
  // The end. The loop has let go of the handle.
  virtual void OnDone(CURLcode code) = 0;

 protected:
  ~LoopMember() = default;
};

// Threads: any.
class TransferLoop {
 public:
  static std::unique_ptr<TransferLoop> Start(unsigned connectionsPerServer, Error* error);
  // All members must have been removed.
  ~TransferLoop();
  TransferLoop(const TransferLoop&) = delete;
  TransferLoop& operator=(const TransferLoop&) = delete;

  // Takes the memory that the other two need for this member.
  void Add(LoopMember& member);
  // Lets a paused transfer go on.
  void Unpause(LoopMember& member);
  // Returns when the loop does not know the member any more.
  void Remove(LoopMember& member);

 private:
  struct Command {
    enum class Kind { kAdd, kUnpause, kRemove } kind;
    LoopMember* member;
  };
  struct FreeMulti {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
  };

  TransferLoop() = default;
  void Post(Command command);
  void Run();
  bool Obey();
  void Obey(const Command& command);
  void Deliver();

  std::unique_ptr<CURLM, FreeMulti> multi_;
  Mutex mutex_;
  Condition obeyed_;
  std::vector<Command> commands_ OX_GUARDED_BY(mutex_);
  std::size_t members_ OX_GUARDED_BY(mutex_) = 0;
  std::uint64_t posted_ OX_GUARDED_BY(mutex_) = 0;
  std::uint64_t done_ OX_GUARDED_BY(mutex_) = 0;
  bool isEnding_ OX_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace ox::internal::http

#endif

#include "http/transfer_loop.h"

#include <system_error>

#include "http/signal_mask.h"

namespace ox::internal::http {
namespace {

// One of each kind. A member is paused again only after it was unpaused, so it never has two
// commands to unpause it waiting.
constexpr std::size_t kCommandsOfMember = 3;
constexpr int kMaxWaitMilliseconds = 1000;
constexpr std::chrono::hours kForEver{24};

}  // namespace

std::unique_ptr<TransferLoop> TransferLoop::Start(unsigned connectionsPerServer, Error* error) {
  std::unique_ptr<TransferLoop> loop(new TransferLoop);
  loop->multi_.reset(curl_multi_init());
  if (loop->multi_ == nullptr) {
    *error = MakeError(ErrorKind::kOutOfMemory, "out of memory");
    return nullptr;
  }
  curl_multi_setopt(loop->multi_.get(), CURLMOPT_MAX_HOST_CONNECTIONS,
                    static_cast<long>(connectionsPerServer));
  try {
    loop->thread_ = std::thread([raw = loop.get()] { raw->Run(); });
  } catch (const std::system_error&) {
    *error = MakeError(ErrorKind::kOutOfMemory, "the system allows no more threads");
    return nullptr;
  }
  return loop;
}

TransferLoop::~TransferLoop() {
  if (!thread_.joinable()) return;
  {
    const MutexLock lock(mutex_);
    isEnding_ = true;
  }
  curl_multi_wakeup(multi_.get());
  thread_.join();
}

void TransferLoop::Add(LoopMember& member) {
  {
    const MutexLock lock(mutex_);
    commands_.reserve(kCommandsOfMember * (members_ + 1));
    ++members_;
  }
  Post({Command::Kind::kAdd, &member});
}

void TransferLoop::Unpause(LoopMember& member) {
  Post({Command::Kind::kUnpause, &member});
}

void TransferLoop::Remove(LoopMember& member) {
  Post({Command::Kind::kRemove, &member});
  MutexLock lock(mutex_);
  const std::uint64_t awaited = posted_;
  const auto isObeyed = [this, awaited]() OX_REQUIRES(mutex_) { return done_ >= awaited; };
  while (!obeyed_.WaitFor(lock, kForEver, isObeyed)) {
  }
}

void TransferLoop::Post(Command command) {
  {
    const MutexLock lock(mutex_);
    commands_.push_back(command);
    ++posted_;
  }
  curl_multi_wakeup(multi_.get());
}

void TransferLoop::Run() {
  BlockSignals();
  while (Obey()) {
    int running = 0;
    curl_multi_perform(multi_.get(), &running);
    Deliver();
    curl_multi_poll(multi_.get(), nullptr, 0, kMaxWaitMilliseconds, nullptr);
  }
}

// False when the loop has to end.
bool TransferLoop::Obey() {
  for (;;) {
    Command command{};
    {
      const MutexLock lock(mutex_);
      if (isEnding_) return false;
      if (commands_.empty()) return true;
      // The list keeps its room.
      command = commands_.front();
      commands_.erase(commands_.begin());
    }
    Obey(command);
    const MutexLock lock(mutex_);
    if (command.kind == Command::Kind::kRemove) --members_;
    ++done_;
    obeyed_.NotifyAll();
  }
}

void TransferLoop::Obey(const Command& command) {
  CURL* handle = command.member->Handle();
  switch (command.kind) {
    case Command::Kind::kAdd:
      if (curl_multi_add_handle(multi_.get(), handle) != CURLM_OK) {
        command.member->OnDone(CURLE_FAILED_INIT);
      }
      return;
    case Command::Kind::kUnpause:
      curl_easy_pause(handle, CURLPAUSE_CONT);
      return;
    case Command::Kind::kRemove:
      curl_multi_remove_handle(multi_.get(), handle);
      return;
  }
}

void TransferLoop::Deliver() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    // The message is gone once the handle is removed.
    CURL* handle = message->easy_handle;
    const CURLcode code = message->data.result;
    char* member = nullptr;
    curl_easy_getinfo(handle, CURLINFO_PRIVATE, &member);
    curl_multi_remove_handle(multi_.get(), handle);
    // What was given is a LoopMember*.
    reinterpret_cast<LoopMember*>(member)->OnDone(code);
  }
}

}  // namespace ox::internal::http

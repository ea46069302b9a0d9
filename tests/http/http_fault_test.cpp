// The client when memory runs out, names are not found out, connections do not come about, and
// signals arrive.
#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>

#include "tests/http/http_rig.h"
#include "tests/support/system_calls.h"

namespace ox::testing {

using namespace std::chrono_literals;

std::atomic<bool> isNameServerSilent{false};

}  // namespace ox::testing

// libcurl's call comes here.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** found) {
  using Call = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
  while (std::string(name) == "silent.example" && ox::testing::isNameServerSilent)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  return reinterpret_cast<Call>(dlsym(RTLD_NEXT, "getaddrinfo"))(name, service, hints, found);
}

namespace ox::testing {
namespace {

// A server in another process, whose memory is not at stake.
class ServerProcess {
 public:
  explicit ServerProcess(const RawServer::Answer& answer) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    process_ = fork();
    if (process_ == 0) {
      const RawServer server(answer);
      url = server.Url("/");
      if (write(ends[1], url.data(), url.size()) < 0) std::abort();
      for (;;)
        pause();
    }
    url.resize(100);
    url.resize(static_cast<std::size_t>(read(ends[0], url.data(), url.size())));
    close(ends[0]);
    close(ends[1]);
  }
  ~ServerProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }

  std::string url;

 private:
  pid_t process_;
};

TEST_F(HttpTest, AnyAllocationMayFail) {
  client_.reset();  // whose thread may hold a lock of the allocator while the process is copied
  const ServerProcess server([](const Connection& connection) {
    const bool isKnown = connection.Has("If-None-Match: \"1\"");
    connection.Send(isKnown ? "HTTP/1.1 304 Same\r\n\r\n" : Whole(kTagged, "body"));
  });
  std::uint64_t call = 1;
  for (bool isReached = true; isReached; ++call) {
    client_.reset();
    session_->Remove(server.url);
    allocationFaults.Arm(call, FaultDriver::Mode::kOnce);
    client_ = http::Client::Open(*session_, {}, &error_);
    for (int times = 0; times < 2 && client_ != nullptr; ++times)
      answer_ = client_->Get(server.url, {}, &error_);
    isReached = allocationFaults.WasReached();
    allocationFaults.Disarm();
    if (client_ == nullptr) client_ = http::Client::Open(*session_, {}, &error_);
    ASSERT_NE(Get(server.url).find("200 body"), std::string::npos) << call;
  }
  EXPECT_GT(call, 100u);
}

TEST_F(HttpTest, ConnectingIsLimited) {
  isNameServerSilent = true;
  RawServer server(Always(Whole("", "body")));
  // A queue that is full: who comes next is not answered.
  const UniqueFd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  socklen_t bytes = sizeof address;
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(bind(listener.Get(), any, bytes) + listen(listener.Get(), 0), 0);
  getsockname(listener.Get(), any, &bytes);
  const UniqueFd first(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(connect(first.Get(), any, bytes), 0);
  const std::string full = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
  RequestOptions options;
  options.connectTimeout = 300ms;
  for (const std::string& url :
       {std::string("http://silent.example/"), full, "https" + server.Url("/").substr(4)}) {
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(Get(url, options), "error 7") << url;
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 10s) << url;
    // Nor does anybody else wait for it.
    EXPECT_EQ(Get(server.Url("/")), "miss 200 body");
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 10s) << url;
    session_->Remove(server.Url("/"));
  }
  client_.reset();
  isNameServerSilent = false;
}

TEST_F(HttpTest, SignalsAreLeftToTheProgramsThreads) {
  EXPECT_EQ(Get("http://127.0.0.1:1/"), "error 7");  // so the client's thread has begun
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  // No thread takes it: by default it would end the program.
  kill(getpid(), SIGUSR1);
  const timespec second{1, 0};
  EXPECT_EQ(sigtimedwait(&signals, nullptr, &second), SIGUSR1);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

}  // namespace
}  // namespace ox::testing

// A server that says what a test wants, byte for byte.
#ifndef OX_TESTS_HTTP_RAW_SERVER_H_
#define OX_TESTS_HTTP_RAW_SERVER_H_

#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <oxfilecache/descriptor.h>

namespace ox::testing {

// One connection, with the request that came on it. It is closed once the function is done.
struct Connection {
  int socket;
  std::string request;

  // False when the client has gone away.
  bool Send(const std::string& bytes) const;
  // Says nothing until the client has gone away.
  void BeSilent() const;
  bool Has(const std::string& text) const { return request.find(text) != std::string::npos; }
};

class RawServer {
 public:
  using Answer = std::function<void(const Connection&)>;

  explicit RawServer(Answer answer);
  ~RawServer();
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  std::string Url(const std::string& path) const;
  std::vector<std::string> Requests();
  // From the next request on.
  void SetAnswer(Answer answer);

 private:
  void Run();
  void Serve(int socket);

  Answer answer_;
  UniqueFd listener_;
  std::mutex mutex_;
  std::vector<std::string> requests_;
  std::list<std::thread> threads_;
  std::thread thread_;
};

}  // namespace ox::testing

#endif

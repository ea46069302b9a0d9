#include "tests/http/raw_server.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>

namespace ox::testing {
namespace {

int PortOf(int socket) {
  sockaddr_in address{};
  socklen_t bytes = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &bytes);
  return ntohs(address.sin_port);
}

}  // namespace

bool Connection::Send(const std::string& bytes) const {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t now = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (now <= 0) return false;
    sent += static_cast<std::size_t>(now);
  }
  return true;
}

void Connection::BeSilent() const {
  char byte;
  while (recv(socket, &byte, 1, 0) > 0) {
  }
}

RawServer::RawServer(Answer answer)
    : answer_(std::move(answer)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener_.Get(), 64) != 0) {
    std::abort();
  }
  thread_ = std::thread([this] { Run(); });
}

RawServer::~RawServer() {
  shutdown(listener_.Get(), SHUT_RDWR);
  thread_.join();
  for (std::thread& thread : threads_)
    thread.join();
}

std::string RawServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(PortOf(listener_.Get())) + path;
}

std::vector<std::string> RawServer::Requests() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

void RawServer::SetAnswer(Answer answer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  answer_ = std::move(answer);
}

void RawServer::Run() {
  for (int socket; (socket = accept(listener_.Get(), nullptr, nullptr)) >= 0;)
    threads_.emplace_back([this, socket] { Serve(socket); });
}

void RawServer::Serve(int socket) {
  const UniqueFd owner(socket);
  std::string request;
  std::array<char, 4096> piece;
  while (request.find("\r\n\r\n") == std::string::npos) {
    const ssize_t bytes = recv(socket, piece.data(), piece.size(), 0);
    if (bytes <= 0) return;
    request.append(piece.data(), static_cast<std::size_t>(bytes));
  }
  Answer answer;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(request);
    answer = answer_;
  }
  answer({socket, request});
}

}  // namespace ox::testing

// A reverse proxy whose answers come from the library, for suites that test caches from outside.
//   suite_adapter MODULE DIRECTORY LISTEN-PORT UPSTREAM
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>

#include <oxfilecache/http.h>

namespace {

using ox::http::Answer;
using ox::http::Header;

struct Request {
  std::string method;
  std::string target;
  std::vector<Header> headers;
  std::string body;
};

bool ReadUntil(int socket, std::size_t bytes, std::string* text) {
  std::array<char, 65536> piece;
  while (text->size() < bytes) {
    const ssize_t got = recv(socket, piece.data(), piece.size(), 0);
    if (got <= 0) return false;
    text->append(piece.data(), static_cast<std::size_t>(got));
  }
  return true;
}

bool ReadRequest(int socket, Request* request) {
  std::string text;
  std::size_t end = std::string::npos;
  while ((end = text.find("\r\n\r\n")) == std::string::npos)
    if (!ReadUntil(socket, text.size() + 1, &text)) return false;
  std::istringstream lines(text.substr(0, end));
  lines >> request->method >> request->target;
  std::string line;
  std::getline(lines, line);
  std::size_t bodyBytes = 0;
  while (std::getline(lines, line)) {
    const std::size_t colon = line.find(':');
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::size_t start = std::min(line.find_first_not_of(' ', colon + 1), line.size());
    const Header header{line.substr(0, colon), line.substr(start)};
    std::string name = header.name;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (name == "content-length") bodyBytes = std::stoul(header.value);
    if (name != "content-length" && name != "connection" && name != "host") {
      request->headers.push_back(header);
    }
  }
  request->body = text.substr(end + 4);
  return ReadUntil(socket, bodyBytes, &request->body);
}

void SendAll(int socket, const std::string& text) {
  for (std::size_t sent = 0; sent < text.size();) {
    const ssize_t bytes = send(socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (bytes <= 0) return;
    sent += static_cast<std::size_t>(bytes);
  }
}

std::string BodyOf(const Answer& answer) {
  std::string body(answer.content.IsOpen() ? answer.size : 0, '\0');
  std::size_t done = 0;
  while (done < body.size()) {
    const ssize_t bytes = read(answer.content.Get(), &body[done], body.size() - done);
    if (bytes <= 0) break;
    done += static_cast<std::size_t>(bytes);
  }
  return body;
}

void Respond(int socket, const std::string& method, const Answer& answer) {
  std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " -\r\nConnection: close\r\n";
  const bool hasBody = method != "HEAD" && answer.status != 204 && answer.status != 304;
  for (const Header& header : answer.headers) {
    const bool isLength = strcasecmp(header.name.c_str(), "Content-Length") == 0;
    if (!hasBody || !isLength) head += header.name + ": " + header.value + "\r\n";
  }
  const std::string body = hasBody ? BodyOf(answer) : "";
  if (hasBody) head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  SendAll(socket, head + "\r\n" + body);
}

void Serve(int socket, ox::http::Client& client, const std::string& upstream) {
  const ox::UniqueFd owner(socket);
  Request request;
  if (!ReadRequest(socket, &request)) return;
  ox::http::RequestOptions options;
  options.headers = request.headers;
  options.maxRedirections = 0;
  options.staleIfError = true;
  const std::string url = upstream + request.target;
  ox::Error error;
  std::optional<Answer> answer;
  if (request.method == "GET") {
    answer = client.Get(url, options, &error);
  } else if (request.method == "HEAD") {
    answer = client.Head(url, options, &error);
  } else {
    answer = client.Send(request.method, url, request.body, options, &error);
  }
  if (answer) return Respond(socket, request.method, *answer);
  const bool isRefused = error.kind == ox::ErrorKind::kNotFound;
  Answer failure;
  failure.status = isRefused ? 504 : 502;
  Respond(socket, request.method, failure);
}

int Listen(int port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool isBound = bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  return isBound && listen(socket, 512) == 0 ? socket : -1;
}

}  // namespace

int main(int count, char** words) {
  if (count != 5) return 2;
  ox::session::SessionOptions options;
  options.modulePath = words[1];
  options.directory = words[2];
  ox::Error error;
  const auto session = ox::session::CacheSession::Open(options, &error);
  ox::http::ClientOptions clientOptions;
  clientOptions.decode = false;
  clientOptions.userAgent.clear();
  clientOptions.connectionsPerServer = 64;
  const auto client = session ? ox::http::Client::Open(*session, clientOptions, &error) : nullptr;
  const int listener = Listen(std::atoi(words[3]));
  if (client == nullptr || listener < 0) {
    std::fprintf(stderr, "cannot start: %s\n", error.Message().c_str());
    return 1;
  }
  // It serves until it is killed.
  for (;;) {
    const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) continue;
    std::thread([socket, &client, upstream = std::string(words[4])] {
      Serve(socket, *client, upstream);
    }).detach();
  }
}

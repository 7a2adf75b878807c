// A small HTTP/1.1 server on 127.0.0.1 (a free port) for tests of the network clients: it
// records every request and answers with the exact bytes a test hands it, so a test can also
// make it misbehave (never answer, cut an answer short, send garbage). Header-only, so that the
// command-line tests can use it too. One connection at a time; every answer closes it.
#pragma once
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vorlan::test {

struct ReceivedRequest {
  std::string method;
  std::string target;  // as on the request line: a path, or a whole URL through a proxy
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;

  // The first header of that name, compared without case.
  std::optional<std::string> header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
      if (key.size() != name.size()) continue;
      if (std::equal(key.begin(), key.end(), name.begin(), [](char a, char b) {
            return std::tolower(static_cast<unsigned char>(a)) ==
                   std::tolower(static_cast<unsigned char>(b));
          }))
        return value;
    }
    return std::nullopt;
  }
};

class LocalHttpServer {
 public:
  // The raw bytes to write before closing; nothing holds the connection open unanswered
  // until the server goes.
  using Handler = std::function<std::optional<std::string>(const ReceivedRequest&)>;

  explicit LocalHttpServer(Handler handler) : handler_(std::move(handler)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener_ < 0) throw std::runtime_error("socket failed");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_, 16) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      ::close(listener_);
      throw std::runtime_error("bind/listen failed");
    }
    port_ = ntohs(address.sin_port);
    loop_ = std::thread([this] { serve(); });
  }

  ~LocalHttpServer() {
    stopping_ = true;
    loop_.join();
    for (int fd : held_) ::close(fd);
    ::close(listener_);
  }

  LocalHttpServer(const LocalHttpServer&) = delete;
  LocalHttpServer& operator=(const LocalHttpServer&) = delete;

  int port() const { return port_; }
  std::string base() const { return "http://127.0.0.1:" + std::to_string(port_); }

  std::vector<ReceivedRequest> requests() const {
    std::lock_guard guard(lock_);
    return requests_;
  }

  static std::string response(int status, const std::string& body,
                              const std::vector<std::pair<std::string, std::string>>& headers = {
                                  {"Content-Type", "application/json"}}) {
    std::string text = "HTTP/1.1 " + std::to_string(status) + " " + reasonPhrase(status) + "\r\n";
    for (const auto& [name, value] : headers) text += name + ": " + value + "\r\n";
    if (status != 204 && status != 304)
      text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    text += "Connection: close\r\n\r\n";
    if (status != 204 && status != 304) text += body;
    return text;
  }

 private:
  static std::string reasonPhrase(int status) {
    switch (status) {
      case 200: return "OK";
      case 201: return "Created";
      case 204: return "No Content";
      case 300: return "Multiple Choices";
      case 302: return "Found";
      case 401: return "Unauthorized";
      case 404: return "Not Found";
      case 500: return "Internal Server Error";
      default: return "Status";
    }
  }

  void serve() {
    while (!stopping_) {
      pollfd waiting{listener_, POLLIN, 0};
      if (::poll(&waiting, 1, 50) <= 0) continue;
      int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      auto request = readRequest(fd);
      if (!request) {
        ::close(fd);
        continue;
      }
      {
        std::lock_guard guard(lock_);
        requests_.push_back(*request);
      }
      auto answer = handler_(*request);
      if (!answer) {
        held_.push_back(fd);
        continue;
      }
      writeAll(fd, *answer);
      ::shutdown(fd, SHUT_WR);
      ::close(fd);
    }
  }

  // Reads one request; gives up after a few seconds of silence or when the server stops.
  std::optional<ReceivedRequest> readRequest(int fd) {
    std::string data;
    size_t headerEnd = std::string::npos;
    size_t bodyLength = 0;
    char buffer[65536];
    for (int idle = 0; idle < 100 && !stopping_;) {
      if (headerEnd != std::string::npos && data.size() >= headerEnd + 4 + bodyLength) break;
      pollfd readable{fd, POLLIN, 0};
      if (::poll(&readable, 1, 50) <= 0) {
        ++idle;
        continue;
      }
      ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
      if (n <= 0) break;
      data.append(buffer, static_cast<size_t>(n));
      if (headerEnd == std::string::npos && (headerEnd = data.find("\r\n\r\n")) != std::string::npos)
        bodyLength = contentLength(data.substr(0, headerEnd));
    }
    if (headerEnd == std::string::npos) return std::nullopt;
    ReceivedRequest request;
    std::string head = data.substr(0, headerEnd);
    size_t lineEnd = head.find("\r\n");
    std::string requestLine = head.substr(0, lineEnd);
    size_t space1 = requestLine.find(' ');
    size_t space2 = requestLine.rfind(' ');
    if (space1 == std::string::npos || space2 == space1) return std::nullopt;
    request.method = requestLine.substr(0, space1);
    request.target = requestLine.substr(space1 + 1, space2 - space1 - 1);
    size_t pos = lineEnd == std::string::npos ? head.size() : lineEnd + 2;
    while (pos < head.size()) {
      size_t end = head.find("\r\n", pos);
      if (end == std::string::npos) end = head.size();
      std::string line = head.substr(pos, end - pos);
      if (size_t colon = line.find(':'); colon != std::string::npos) {
        std::string value = line.substr(colon + 1);
        while (!value.empty() && value.front() == ' ') value.erase(value.begin());
        request.headers.emplace_back(line.substr(0, colon), value);
      }
      pos = end + 2;
    }
    request.body = data.substr(headerEnd + 4, bodyLength);
    return request;
  }

  static size_t contentLength(const std::string& head) {
    std::string lower = head;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    size_t at = lower.find("\r\ncontent-length:");
    if (at == std::string::npos) return 0;
    return static_cast<size_t>(std::stoull(head.substr(at + 17)));
  }

  static void writeAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
      // The client may hang up early on purpose (a bounded read); no SIGPIPE for that.
      ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
      if (n <= 0) return;
      done += static_cast<size_t>(n);
    }
  }

  Handler handler_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  std::thread loop_;
  std::vector<int> held_;  // touched by the serving thread, then by the destructor after join
  mutable std::mutex lock_;
  std::vector<ReceivedRequest> requests_;
};

}  // namespace vorlan::test

// A tiny HTTP server on 127.0.0.1 (a free port) for the network tests: it records each request
// and answers with the exact bytes its handler returns, so a test can make it misbehave. An
// absent answer holds the connection open, unanswered, until the server goes. Linux only.
#pragma once
#include <netinet/in.h>
#include <stdio.h>
#include <strings.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace vorlan::test {

struct ReceivedRequest {
  std::string method, target, body;
  std::vector<std::pair<std::string, std::string>> headers;
  std::optional<std::string> header(const std::string& name) const {
    for (const auto& [key, value] : headers)
      if (::strcasecmp(key.c_str(), name.c_str()) == 0) return value;
    return std::nullopt;
  }
};

class LocalHttpServer {
 public:
  using Handler = std::function<std::optional<std::string>(const ReceivedRequest&)>;

  explicit LocalHttpServer(Handler handler) : handler_(std::move(handler)) {
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_, raw, length) != 0 || ::listen(listener_, 16) != 0 || ::getsockname(listener_, raw, &length) != 0)
      throw std::runtime_error("cannot listen on 127.0.0.1");
    base_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    loop_ = std::thread([this] { serve(); });
  }
  ~LocalHttpServer() {
    ::shutdown(listener_, SHUT_RDWR);  // wakes the accept below, which then fails
    loop_.join();
    for (int fd : held_) ::close(fd);
    ::close(listener_);
  }

  const std::string& base() const { return base_; }
  std::vector<ReceivedRequest> requests() const {
    std::lock_guard guard(lock_);
    return requests_;
  }

  static std::string response(int status, std::string body,
                              const std::string& headerLines = "Content-Type: application/json\r\n") {
    if (status == 204) body.clear();
    return "HTTP/1.1 " + std::to_string(status) + " Status\r\n" + headerLines + "Content-Length: " +
           std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
  }

 private:
  void serve() {
    for (int fd; (fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
      const auto request = readRequest(fd);
      if (request) {
        std::lock_guard guard(lock_);
        requests_.push_back(*request);
      }
      const auto answer = request ? handler_(*request) : std::string();
      if (!answer) held_.push_back(fd);
      // The client may hang up early on purpose (a bounded read): no SIGPIPE for that.
      for (ssize_t done = 0, n = 0; answer && done < ssize_t(answer->size()); done += n)
        if ((n = ::send(fd, answer->data() + done, answer->size() - done, MSG_NOSIGNAL)) <= 0) break;
      if (answer) ::close(fd);
    }
  }

  // One request, or nothing after five seconds of silence.
  static std::optional<ReceivedRequest> readRequest(int fd) {
    timeval patience{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    std::unique_ptr<FILE, int (*)(FILE*)> in(::fdopen(::dup(fd), "r"), &::fclose);
    char method[16], target[4096], line[8192];
    if (!in || ::fscanf(in.get(), "%15s %4095s HTTP/1.1\r\n", method, target) != 2) return std::nullopt;
    ReceivedRequest request{method, target, {}, {}};
    while (::fgets(line, sizeof line, in.get()) && std::string_view(line) != "\r\n")
      if (char* colon = std::strchr(line, ':'))
        request.headers.emplace_back(std::string(line, size_t(colon - line)),
                                     std::string(colon + 2, std::strcspn(colon + 2, "\r\n")));
    request.body.resize(std::stoul(request.header("Content-Length").value_or("0")));
    if (::fread(request.body.data(), 1, request.body.size(), in.get()) != request.body.size()) return std::nullopt;
    return request;
  }

  Handler handler_;
  int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::string base_;
  std::thread loop_;
  std::vector<int> held_;  // the serving thread's, then the destructor's after the join
  mutable std::mutex lock_;
  std::vector<ReceivedRequest> requests_;
};

}  // namespace vorlan::test

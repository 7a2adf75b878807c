// The production transport: libcurl, one easy handle per request. TLS is verified, redirects
// are not followed, only http and https are spoken, proxies come from the usual environment
// variables as libcurl reads them, and answers are read only up to a bound.
#pragma once
#include <chrono>
#include <cstddef>
#include <optional>
#include <stop_token>

#include "network/HttpTransport.hpp"

namespace vorlan {

struct CurlOptions {
  // An answer longer than this is no answer: every body the clients expect is small.
  size_t maxResponseBytes = 4 * 1024 * 1024;
  // Shortens the clients' own time-outs; tests use it to wait one second instead of ten.
  std::optional<std::chrono::milliseconds> timeoutCap;
  // A stop request ends the exchange with no answer.
  std::stop_token stop;
};

class CurlTransport final : public HttpTransport {
 public:
  explicit CurlTransport(CurlOptions options = {}) : options_(std::move(options)) {}
  std::optional<HttpResponse> perform(const HttpRequest& request) override;

 private:
  CurlOptions options_;
};

}  // namespace vorlan

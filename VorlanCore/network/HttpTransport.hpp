// The one seam between the network clients and the wire: one HTTP exchange, request in,
// response or nothing out. Clients build the requests; a transport only carries them.
#pragma once
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vorlan {

struct HttpRequest {
  std::string method;  // "GET" or "POST"
  std::string url;
  std::vector<std::pair<std::string, std::string>> headers;  // in the order they are sent
  std::string body;
  std::chrono::milliseconds timeout{10'000};  // for the whole exchange
  bool operator==(const HttpRequest&) const = default;
};

struct HttpResponse {
  long status = 0;
  std::string body;
  bool operator==(const HttpResponse&) const = default;
};

// Any status is a response; nothing means that no complete HTTP answer came (no connection,
// time-out, a cut answer, an answer too large). Never throws.
class HttpTransport {
 public:
  virtual ~HttpTransport() = default;
  virtual std::optional<HttpResponse> perform(const HttpRequest& request) = 0;
};

inline bool isSuccessStatus(long status) { return status >= 200 && status <= 299; }

}  // namespace vorlan

#include "network/CurlTransport.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <memory>
#include <mutex>

#include "network/WebURL.hpp"

namespace vorlan {
namespace {

void initialiseCurlOnce() {
  // curl_global_init is not thread-safe on older libcurl; every request passes here first.
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct EasyDeleter {
  void operator()(CURL* c) const { curl_easy_cleanup(c); }
};
struct ListDeleter {
  void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};

struct Exchange {
  std::string body;
  size_t limit = 0;
  bool tooLarge = false;
  std::stop_token stop;
};

size_t collectBody(char* data, size_t size, size_t count, void* user) {
  auto* exchange = static_cast<Exchange*>(user);
  const size_t bytes = size * count;
  if (exchange->body.size() + bytes > exchange->limit) {
    exchange->tooLarge = true;
    return 0;  // makes libcurl stop with a write error
  }
  exchange->body.append(data, bytes);
  return bytes;
}

int watchStop(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  return static_cast<Exchange*>(user)->stop.stop_requested() ? 1 : 0;
}

}  // namespace

std::optional<HttpResponse> CurlTransport::perform(const HttpRequest& request) {
  if (!isWebURL(request.url)) return std::nullopt;
  if (request.method != "GET" && request.method != "POST") return std::nullopt;
  initialiseCurlOnce();
  std::unique_ptr<CURL, EasyDeleter> easy(curl_easy_init());
  if (!easy) return std::nullopt;
  CURL* h = easy.get();

  auto timeout = request.timeout;
  if (options_.timeoutCap) timeout = std::min(timeout, *options_.timeoutCap);
  const long timeoutMs = static_cast<long>(std::max<int64_t>(1, timeout.count()));

  Exchange exchange;
  exchange.limit = options_.maxResponseBytes;
  exchange.stop = options_.stop;

  curl_easy_setopt(h, CURLOPT_URL, request.url.c_str());
#if LIBCURL_VERSION_NUM >= 0x075500
  curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
#else
  curl_easy_setopt(h, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif
  // A 3xx is an answer like any other status; nothing is followed anywhere.
  curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, 2L);
  // Signals would disturb the program's own signal handling and other threads.
  curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, timeoutMs);
  curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, timeoutMs);
  curl_easy_setopt(h, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(options_.maxResponseBytes));
  curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, collectBody);
  curl_easy_setopt(h, CURLOPT_WRITEDATA, &exchange);
  curl_easy_setopt(h, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(h, CURLOPT_XFERINFOFUNCTION, watchStop);
  curl_easy_setopt(h, CURLOPT_XFERINFODATA, &exchange);

  curl_slist* rawHeaders = nullptr;
  for (const auto& [name, value] : request.headers) {
    std::string line = name + ": " + value;
    curl_slist* grown = curl_slist_append(rawHeaders, line.c_str());
    if (!grown) {
      curl_slist_free_all(rawHeaders);
      return std::nullopt;
    }
    rawHeaders = grown;
  }
  // libcurl would otherwise ask larger bodies to wait for "100 Continue", which some servers
  // never send: a needless second of delay on every report.
  if (curl_slist* grown = curl_slist_append(rawHeaders, "Expect:")) rawHeaders = grown;
  std::unique_ptr<curl_slist, ListDeleter> headers(rawHeaders);
  curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers.get());

  if (request.method == "POST") {
    curl_easy_setopt(h, CURLOPT_POST, 1L);
    curl_easy_setopt(h, CURLOPT_POSTFIELDS, request.body.data());
    curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  } else {
    curl_easy_setopt(h, CURLOPT_HTTPGET, 1L);
  }

  if (curl_easy_perform(h) != CURLE_OK || exchange.tooLarge) return std::nullopt;
  long status = 0;
  if (curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status) != CURLE_OK || status < 100)
    return std::nullopt;
  return HttpResponse{status, std::move(exchange.body)};
}

}  // namespace vorlan

#include "network/UpdateCheck.hpp"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

#include "network/WebURL.hpp"

namespace vorlan {

std::optional<std::string> HttpGetTransport::get(const std::string& url) {
  HttpRequest request{.method = "GET", .url = url, .headers = {}, .body = {},
                      .timeout = UpdateCheck::timeout};
  auto response = http_.perform(request);
  if (!response || !isSuccessStatus(response->status)) return std::nullopt;
  return std::move(response->body);
}

namespace UpdateCheck {

const std::string_view defaultEndpoint = VORLAN_DEFAULT_UPDATE_ENDPOINT;

std::optional<Manifest> decodeManifest(std::string_view json) {
  auto doc = nlohmann::json::parse(json.begin(), json.end(), nullptr, false);
  if (doc.is_discarded() || !doc.is_object()) return std::nullopt;
  auto version = doc.find("version");
  auto url = doc.find("url");
  if (version == doc.end() || url == doc.end() || !version->is_string() || !url->is_string())
    return std::nullopt;
  return Manifest{version->get<std::string>(), url->get<std::string>()};
}

std::string endpointInForce(const Environment& env) {
  return environmentValue(env, endpointVariable).value_or(std::string(defaultEndpoint));
}

std::optional<std::vector<int64_t>> components(std::string_view version) {
  if (version.empty()) return std::nullopt;
  std::vector<int64_t> numbers;
  size_t start = 0;
  while (true) {
    const size_t dot = version.find('.', start);
    std::string_view piece = version.substr(start, dot == std::string_view::npos ? dot : dot - start);
    bool negative = false;
    if (!piece.empty() && (piece.front() == '+' || piece.front() == '-')) {
      negative = piece.front() == '-';
      piece.remove_prefix(1);
    }
    // from_chars takes no sign of its own, so "+-1" and "--1" fail here as they should.
    if (piece.empty() || piece.front() == '+' || piece.front() == '-') return std::nullopt;
    int64_t value = 0;
    auto [end, ec] = std::from_chars(piece.data(), piece.data() + piece.size(), value);
    if (ec != std::errc{} || end != piece.data() + piece.size()) return std::nullopt;
    if (negative && value != 0) return std::nullopt;
    numbers.push_back(value);
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  return numbers;
}

bool isNewer(std::string_view candidate, std::string_view current) {
  auto a = components(candidate);
  auto b = components(current);
  if (!a || !b) return false;
  const size_t length = std::max(a->size(), b->size());
  a->resize(length, 0);
  b->resize(length, 0);
  return *a > *b;
}

std::optional<UpdateInfo> check(std::string_view current, std::string_view endpoint,
                                UpdateTransport& transport) {
  auto url = endpointURL(endpoint, path);
  if (!url) return std::nullopt;
  auto body = transport.get(*url);
  if (!body) return std::nullopt;
  auto manifest = decodeManifest(*body);
  if (!manifest || !isNewer(manifest->version, current)) return std::nullopt;
  if (!isHttpsURL(manifest->url)) return std::nullopt;
  return UpdateInfo{manifest->version, manifest->url};
}

}  // namespace UpdateCheck
}  // namespace vorlan

#include "network/WebURL.hpp"

#include <curl/curl.h>

#include <memory>

#include "platform/Utf8Text.hpp"

namespace vorlan {
namespace {

struct UrlDeleter {
  void operator()(CURLU* u) const { curl_url_cleanup(u); }
};
struct CharDeleter {
  void operator()(char* p) const { curl_free(p); }
};

// The lower-cased scheme of an absolute URL with a host, or nothing.
std::optional<std::string> parsedScheme(std::string_view url) {
  // Parsing copies into a C string: an embedded NUL would otherwise cut the URL short.
  if (url.empty() || url.find('\0') != std::string_view::npos) return std::nullopt;
  std::unique_ptr<CURLU, UrlDeleter> handle(curl_url());
  if (!handle) return std::nullopt;
  const std::string text(url);
  if (curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
    return std::nullopt;
  char* host = nullptr;
  if (curl_url_get(handle.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK || !host) return std::nullopt;
  std::unique_ptr<char, CharDeleter> hostHolder(host);
  if (*host == '\0') return std::nullopt;
  char* scheme = nullptr;
  if (curl_url_get(handle.get(), CURLUPART_SCHEME, &scheme, 0) != CURLUE_OK || !scheme)
    return std::nullopt;
  std::unique_ptr<char, CharDeleter> schemeHolder(scheme);
  return std::string(scheme);
}

}  // namespace

bool isWebURL(std::string_view url) {
  auto scheme = parsedScheme(url);
  return scheme && (*scheme == "http" || *scheme == "https");
}

bool isHttpsURL(std::string_view url) {
  // The parser lower-cases the scheme; the link must be written "https" as it stands.
  return url.starts_with("https:") && parsedScheme(url) == "https";
}

std::optional<std::string> endpointURL(std::string_view endpoint, std::string_view path) {
  std::string_view base = trimBlanks(endpoint);
  while (base.ends_with('/')) base.remove_suffix(1);
  if (base.empty()) return std::nullopt;
  std::string url = std::string(base) + std::string(path);
  if (!isWebURL(url)) return std::nullopt;
  return url;
}

}  // namespace vorlan

#include "network/Explain.hpp"

#include <algorithm>

#include "network/CleanupTelemetry.hpp"
#include "network/JsonText.hpp"
#include "network/WebURL.hpp"

namespace vorlan {

std::optional<std::string> HttpExplainTransport::post(const std::string& json,
                                                      const std::string& url) {
  HttpRequest request{.method = "POST", .url = url,
                      .headers = {{"Content-Type", "application/json"}}, .body = json,
                      .timeout = Explain::timeout};
  auto response = http_.perform(request);
  if (!response || !isSuccessStatus(response->status)) return std::nullopt;
  return std::move(response->body);
}

namespace Explain {

const std::string_view defaultEndpoint = VORLAN_DEFAULT_EXPLAIN_ENDPOINT;

std::string endpointInForce(const Environment& env) {
  return environmentValue(env, endpointVariable).value_or(std::string(defaultEndpoint));
}

std::vector<std::string> paths(const std::vector<CleanupItem>& items,
                               const KnowledgeDictionary& dictionary) {
  std::vector<std::string> chosen;
  for (const auto& item : items) {
    if (item.verdict == CleanupVerdict::keep || item.verdict == CleanupVerdict::inUse) continue;
    if (item.bytes < minBytes) continue;
    if (dictionary.lookup(item.path)) continue;
    // The privacy rule of this client: a name that is not public never leaves, however large.
    if (!Telemetry::isPublicIdentifier(item.path, dictionary)) continue;
    chosen.push_back(item.path);
  }
  std::sort(chosen.begin(), chosen.end());
  if (chosen.size() > maxPaths) chosen.resize(maxPaths);
  return chosen;
}

std::string renderRequest(const std::vector<std::string>& paths) {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  json["paths"] = paths;
  return jsonText(json, JsonStyle::compact).value_or("{}");
}

std::optional<std::map<std::string, DictEntry>> fetch(const std::vector<std::string>& paths,
                                                      std::string_view endpoint,
                                                      ExplainTransport& transport) {
  if (paths.empty()) return std::nullopt;
  auto url = endpointURL(endpoint, path);
  if (!url) return std::nullopt;
  auto answer = transport.post(renderRequest(paths), *url);
  if (!answer) return std::nullopt;
  auto entries = KnowledgeDictionary::decodeEntries(*answer);
  if (!entries) return std::nullopt;
  for (auto& [key, entry] : *entries) entry.deletePaths.clear();
  return entries;
}

}  // namespace Explain
}  // namespace vorlan

#include "network/CleanupTelemetry.hpp"

#include <fmt/format.h>

#include "network/JsonText.hpp"

namespace vorlan::Telemetry {
namespace {

std::string_view lastComponent(std::string_view path) {
  size_t end = path.size();
  while (end > 0 && path[end - 1] == '/') --end;
  if (end == 0) return path;  // no piece at all: the path stands for itself
  const size_t slash = path.rfind('/', end - 1);
  const size_t begin = slash == std::string_view::npos ? 0 : slash + 1;
  return path.substr(begin, end - begin);
}

bool isLabelChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
}

// ^[A-Za-z0-9-]+\.[A-Za-z0-9-]+\. without the cost of a regular expression per row.
bool startsWithTwoLabels(std::string_view name) {
  size_t i = 0;
  for (int label = 0; label < 2; ++label) {
    const size_t start = i;
    while (i < name.size() && isLabelChar(name[i])) ++i;
    if (i == start || i >= name.size() || name[i] != '.') return false;
    ++i;
  }
  return true;
}

}  // namespace

bool isPublicIdentifier(std::string_view path, const KnowledgeDictionary& dictionary) {
  if (namesUserFolder(path)) return false;
  if (startsWithTwoLabels(lastComponent(path))) return true;
  return dictionary.lookup(path).has_value();
}

std::string maskCleanupPath(std::string_view path, const KnowledgeDictionary& dictionary,
                            int64_t& counter) {
  if (isPublicIdentifier(path, dictionary)) return std::string(path);
  return fmt::format("<masked-{}>", ++counter);
}

CleanupEvent buildCleanupEvent(std::string_view event, const std::vector<CleanupItem>& items,
                               const KnowledgeDictionary& dictionary,
                               std::optional<std::string> install,
                               const std::filesystem::path& home) {
  CleanupEvent built;
  built.installId = install ? std::move(*install) : installID(installIDFile(home));
  built.event = std::string(event);
  int64_t counter = 0;
  built.items.reserve(items.size());
  for (const auto& item : items)
    built.items.push_back({maskCleanupPath(item.path, dictionary, counter), item.bytes,
                           std::string(rawValue(item.verdict)), item.checked});
  return built;
}

std::string encodeCleanupEnvelope(const CleanupEvent& event) {
  using Json = nlohmann::ordered_json;
  Json items = Json::array();
  for (const auto& item : event.items) {
    Json row = Json::object();
    row["path"] = item.path;
    row["bytes"] = item.bytes;
    row["verdict"] = item.verdict;
    row["checked"] = item.checked;
    items.push_back(std::move(row));
  }
  Json payload = Json::object();
  payload["schema_version"] = event.schemaVersion;
  payload["install_id"] = event.installId;
  payload["app_version"] = event.appVersion;
  payload["event"] = event.event;
  payload["items"] = std::move(items);
  Json envelope = Json::object();
  envelope["payload"] = std::move(payload);
  return jsonText(envelope, JsonStyle::wire).value_or("");
}

bool sendCleanupEvent(const CleanupEvent& event, HttpTransport& transport,
                      const std::optional<Config>& config) {
  if (!config) return false;
  const std::string body = encodeCleanupEnvelope(event);
  if (body.empty()) return false;
  return postToTable(*config, cleanupEventsTable, body, transport);
}

}  // namespace vorlan::Telemetry

#include "network/ScanTelemetry.hpp"

#include <sys/utsname.h>
#ifdef __APPLE__
#include <sys/sysctl.h>
#endif

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

#include <fmt/format.h>

#include "network/JsonText.hpp"

namespace vorlan::Telemetry {
namespace {

using Json = nlohmann::ordered_json;

Json toJson(const PayloadFinding& finding) {
  Json json = Json::object();
  json["path"] = finding.path;
  if (finding.sizeBytes) json["size_bytes"] = *finding.sizeBytes;
  json["grade"] = finding.grade;
  json["category"] = finding.category;
  return json;
}

// A figure that is not finite has no JSON form; it is left out like an absent one.
void putNumber(Json& json, const char* key, std::optional<double> value) {
  if (value && std::isfinite(*value)) json[key] = *value;
}

Json toJson(const Payload& payload) {
  Json json = Json::object();
  json["schema_version"] = payload.schemaVersion;
  json["install_id"] = payload.installId;
  json["app_kind"] = payload.appKind;
  json["app_version"] = payload.appVersion;
  json["os_version"] = payload.osVersion;
  json["disk_total_bytes"] = payload.diskTotalBytes;
  json["disk_free_bytes"] = payload.diskFreeBytes;
  if (payload.diskUsedSettingsBytes)
    json["disk_used_settings_bytes"] = *payload.diskUsedSettingsBytes;
  putNumber(json, "system_data_gb_manual", payload.systemDataGbManual);
  putNumber(json, "duration_s", payload.durationS);
  if (payload.runningContainers) json["running_containers"] = *payload.runningContainers;
  json["snapshot_count"] = payload.snapshotCount;
  Json findings = Json::array();
  for (const auto& finding : payload.findings) findings.push_back(toJson(finding));
  json["findings"] = std::move(findings);
  json["errors"] = payload.errors;
  return json;
}

// Whether an unclassified path names something personal that must not leave as it stands.
bool needsMask(std::string_view path) {
  if (namesUserFolder(path)) return true;
  std::string_view name = path;
  if (name.starts_with("~/")) name.remove_prefix(2);
  while (name.ends_with('/')) name.remove_suffix(1);
  return name.find('/') == std::string_view::npos && !name.starts_with('.');
}

int64_t leadingNumber(std::string_view text) {
  int64_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value < 0 ? 0 : value;
}

}  // namespace

std::vector<PayloadFinding> maskFindings(const std::vector<Finding>& findings) {
  std::vector<PayloadFinding> masked;
  masked.reserve(findings.size());
  int64_t counter = 0;
  for (const auto& finding : findings) {
    PayloadFinding out{finding.path, finding.sizeBytes, std::string(rawValue(finding.grade)),
                       finding.category};
    if (finding.grade == Grade::unknown && needsMask(finding.path))
      out.path = fmt::format("<masked-{}>", ++counter);
    masked.push_back(std::move(out));
  }
  return masked;
}

std::string majorMinor(std::string_view release) {
  const size_t dot = release.find('.');
  const int64_t major = leadingNumber(release.substr(0, dot));
  const int64_t minor =
      dot == std::string_view::npos ? 0 : leadingNumber(release.substr(dot + 1));
  return fmt::format("{}.{}", major, minor);
}

std::string osVersion() {
#ifdef __APPLE__
  char text[64] = {};
  size_t size = sizeof text - 1;
  if (::sysctlbyname("kern.osproductversion", text, &size, nullptr, 0) == 0)
    return majorMinor(text);
#endif
  utsname name{};
  if (::uname(&name) == 0) return majorMinor(name.release);
  return majorMinor("");
}

Payload buildPayload(const DeepScanResult& result, std::optional<double> systemDataGB,
                     std::optional<double> durationS, std::string_view appKind,
                     std::vector<std::string> errors, std::optional<std::string> install,
                     const std::filesystem::path& home) {
  if (!result.diskUsedSettingsBytes) errors.emplace_back(settingsUsedUnavailableError);
  Payload payload;
  payload.installId = install ? std::move(*install) : installID(installIDFile(home));
  payload.appKind = std::string(appKind);
  payload.osVersion = osVersion();
  payload.diskTotalBytes = result.diskTotalBytes;
  payload.diskFreeBytes = result.diskFreeBytes;
  payload.diskUsedSettingsBytes = result.diskUsedSettingsBytes;
  payload.systemDataGbManual = systemDataGB;
  payload.durationS = durationS;
  payload.runningContainers = result.runningContainers;
  payload.snapshotCount = static_cast<int64_t>(result.snapshots.size());
  payload.findings = maskFindings(result.findings);
  payload.errors = std::move(errors);
  return payload;
}

std::string renderPreview(const Payload& payload) {
  return jsonText(toJson(payload), JsonStyle::pretty).value_or("{}");
}

std::string encodeEnvelope(const Payload& payload) {
  Json envelope = Json::object();
  envelope["payload"] = toJson(payload);
  return jsonText(envelope, JsonStyle::wire).value_or("");
}

bool send(const Payload& payload, HttpTransport& transport, const std::optional<Config>& config) {
  if (!config) return false;
  const std::string body = encodeEnvelope(payload);
  if (body.empty()) return false;
  return postToTable(*config, scanReportsTable, body, transport);
}

}  // namespace vorlan::Telemetry

// The anonymous scan report: its wire format, the masking of personal folder names, the
// preview text shown to the user, and the upload into the back-end's table "scan_reports".
#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "network/HttpTransport.hpp"
#include "network/Telemetry.hpp"
#include "scan/ScanRecords.hpp"

namespace vorlan::Telemetry {

inline constexpr std::string_view scanReportsTable = "scan_reports";
inline constexpr std::string_view fdaDeniedError = "fda_denied";
inline constexpr std::string_view settingsUsedUnavailableError = "settings_used_unavailable";

struct PayloadFinding {
  std::string path;  // as found, or "<masked-N>"
  std::optional<int64_t> sizeBytes;
  std::string grade;  // "SAFE", "REVIEW", "NEVER", "UNKNOWN"
  std::string category;
  bool operator==(const PayloadFinding&) const = default;
};

// Fields in the order of their JSON keys; absent optionals leave their key out.
struct Payload {
  int64_t schemaVersion = Telemetry::schemaVersion;
  std::string installId;
  std::string appKind;
  std::string appVersion{Telemetry::appVersion};
  std::string osVersion;
  int64_t diskTotalBytes = 0;
  int64_t diskFreeBytes = 0;
  std::optional<int64_t> diskUsedSettingsBytes;
  std::optional<double> systemDataGbManual;
  std::optional<double> durationS;
  std::optional<int64_t> runningContainers;
  int64_t snapshotCount = 0;
  std::vector<PayloadFinding> findings;
  std::vector<std::string> errors;
  bool operator==(const Payload&) const = default;
};

// An unclassified finding whose path is one bare name (not a dot-name) becomes "<masked-N>",
// numbered from 1 over the whole list; everything else keeps its path. A leading "~/" and
// trailing "/" do not hide a bare name, and a path inside a user's folder under /Users or
// /home is masked too, since its second component is an account name.
std::vector<PayloadFinding> maskFindings(const std::vector<Finding>& findings);

// Reads the id file under `home` unless `install` is given, and appends
// "settings_used_unavailable" behind `errors` when the settings figure is absent.
Payload buildPayload(const DeepScanResult& result, std::optional<double> systemDataGB,
                     std::optional<double> durationS, std::string_view appKind,
                     std::vector<std::string> errors, std::optional<std::string> install,
                     const std::filesystem::path& home);

// "<major>.<minor>" of the running system; the patch number is not sent.
std::string osVersion();
// "<major>.<minor>" of a release text: "14.5.1" → "14.5", "6.1.0-18-amd64" → "6.1",
// "14" → "14.0"; what cannot be read counts as 0.
std::string majorMinor(std::string_view release);

// The payload as pretty JSON for a screen, slashes as they are; "{}" if it cannot be encoded.
std::string renderPreview(const Payload& payload);

// The exact request body: {"payload":{...}}, compact, slashes escaped as "\/".
std::string encodeEnvelope(const Payload& payload);

// Posts the report when a back-end is configured; true when the table took it.
bool send(const Payload& payload, HttpTransport& transport,
          const std::optional<Config>& config = currentConfig());

}  // namespace vorlan::Telemetry

// The fixed example state behind VORLAN_DEBUG_REPORT=1: the report screen without a scan.
#include <utility>

#include "flow/AppFlow.hpp"
#include "scan/Classification.hpp"

namespace vorlan::app {

void AppFlow::applyDebugReportFixture() {
  // Paths in the system's own form (home-relative, no "~/"), so that the report screen shows
  // them, and finds their settings actions, exactly as it would after a real scan.
  const std::pair<const char*, int64_t> rows[] = {
      {"Library/Mobile Documents", 95'800'000'000},
      {"Library/Containers/com.docker.docker", 32'400'000'000},
      {"Library/Metadata/CoreSpotlight", 21'700'000'000},
      {"Library/Application Support", 14'200'000'000},
      {"Library/Caches", 12'300'000'000},
      {"Library/Developer/Xcode/DerivedData", 8'900'000'000},
      {"Library/Group Containers", 8'100'000'000},
      {".gemini", 6'200'000'000},
      {"Library/Biome", 4'800'000'000},
      {"Library/Daemon Containers", 900'000'000},
      {".idaes", 600'000'000},
  };
  DeepScanResult fixture;
  fixture.diskTotalBytes = 994'660'000'000;
  fixture.diskFreeBytes = 210'400'000'000;
  fixture.runningContainers = 1;
  fixture.snapshots = {"com.apple.os.update-2026081900"};
  fixture.diskUsedSettingsBytes = 784'300'000'000;
  // The rule rows' own texts; no tool is asked, so every grade is the table's.
  for (const auto& [path, bytes] : rows) fixture.findings.push_back(classify(path, bytes, {}));

  result_ = std::move(fixture);
  emit resultChanged();
  setSystemDataGB(132.19);
  scanDuration_ = 542.0;
  emit scanDurationChanged();
  telemetrySent_ = true;
  emit telemetrySentChanged();
  telemetryPreview_ = QStringLiteral(
      "{\n"
      "  \"schema_version\": 1,\n"
      "  \"app_kind\": \"gui\",\n"
      "  \"disk_total_gb\": 994.7,\n"
      "  \"system_data_gb\": 132.19,\n"
      "  \"duration_s\": 542,\n"
      "  \"install_id\": \"debug-fixture\"\n"
      "}\n");
  emit telemetryPreviewChanged();
  setStep(Step::report);
}

}  // namespace vorlan::app

// One whole scan: measures every rule location that exists, sweeps the home folder and its
// Library for what no rule covers, then reads the volume, running containers and snapshots.
// Built afresh for each scan; it borrows the runner, which must outlive it.
#pragma once
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "scan/RuleTable.hpp"
#include "scan/ScanRecords.hpp"
#include "scan/ToolRunning.hpp"
#include "scan/WalkEngine.hpp"

namespace vorlan {

// Called in order, from the scanning thread or from the runner's reading thread: it must be
// safe from any thread and must not block.
using ProgressCallback = std::function<void(const ScanProgress&)>;

namespace ScanMessages {
inline constexpr std::string_view rulePhase = "1/3 알려진 경로 측정 중 (캐시·VM·모델 폴더)...";
inline constexpr std::string_view homePhase =
    "2/3 홈 폴더 전체 측정 중 — 가장 오래 걸리는 단계입니다 (수 분 소요 가능)...";
inline constexpr std::string_view probePhase = "3/3 컨테이너·스냅샷 확인 중...";
}  // namespace ScanMessages

// How a scan answers its du questions. `walk` reads the home folder once, before the rule
// phase, with a few threads, and answers every question from what it gathered; `du` runs the
// system's tool once per question. The figures are the same: both count allocated blocks in
// KiB rounded up, each hard-linked file once per question, nothing past another file system.
enum class ScanEngine { walk, du };
std::string_view rawValue(ScanEngine engine);
std::optional<ScanEngine> scanEngineFromRaw(std::string_view raw);  // "walk" or "du", exact
// The engine VORLAN_SCAN_ENGINE names; the walk when it is unset, empty or unknown.
ScanEngine scanEngineFromEnvironment(const char* value);

// Whether home-relative `path` is already measured by, or holds, one of the `covered` paths.
bool isCovered(std::string_view path, const std::vector<std::string>& covered);

class DeepScanner {
 public:
  DeepScanner(ToolRunning& runner, std::filesystem::path home, HasBinary hasBinary,
              ScanEngine engine = ScanEngine::walk);

  // Only cancellation ends a scan early: missing or failing tools leave gaps. Throws
  // vorlan::Cancelled before each rule row, after the home sweep, and at the very end.
  DeepScanResult collect(const ProgressCallback& progress, std::stop_token stop = {});

  // Existing rule locations in table order, children's sizes taken out of their parents.
  std::vector<Finding> rulePathFindings(const ProgressCallback& progress, std::stop_token stop = {});
  // Depth-1 children of the home folder, then of its Library, that no covered path touches.
  std::vector<Finding> discoveryFindings(const std::vector<std::string>& covered,
                                         const ProgressCallback& progress, std::stop_token stop = {});
  // Never throws Cancelled: a stop shows at the caller's next check.
  std::vector<Finding> libraryDiscoveryFindings(const std::vector<std::string>& covered,
                                                const ProgressCallback& progress,
                                                std::stop_token stop = {});

  // `du -xk -d DEPTH PATH`, whatever its exit status; empty when it could not run. The walk
  // engine answers it from its walk, with the same entries.
  std::vector<DuEntry> du(const std::string& path, int depth, std::stop_token stop = {});
  // Absent when docker is missing, slow (10 s) or fails.
  std::optional<int64_t> runningContainers(std::stop_token stop = {});
  // Local snapshots of "/" from tmutil, then what diskutil adds.
  std::vector<std::string> snapshots(std::stop_token stop = {});

 private:
  // Runs one streaming depth-1 sweep, reporting each line; absent when the tool failed.
  std::optional<std::vector<DuEntry>> sweep(const std::string& path, const ProgressCallback& progress,
                                            std::stop_token stop);
  std::string absolutePath(const std::string& subpath) const;
  std::vector<const Rule*> presentRules() const;
  // The walk engine's one walk for every question of the scan. A walk short of file
  // descriptors would give short figures: the scan goes on with du instead.
  void walkEverything(const ProgressCallback& progress, std::stop_token stop);

  ToolRunning& runner_;
  std::string home_;  // without a trailing "/"
  HasBinary hasBinary_;
  std::unique_ptr<WalkEngine> walk_;  // null with the du engine
};

}  // namespace vorlan

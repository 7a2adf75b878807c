#include "scan/DeepScanner.hpp"

#include <system_error>

#include "Cancelled.hpp"
#include "platform/VolumeFigures.hpp"
#include "scan/Classification.hpp"
#include "scan/RuleTable.hpp"
#include "scan/ToolOutputParsers.hpp"

namespace vorlan {
namespace {

void report(const ProgressCallback& progress, int64_t phase, std::string_view message,
            std::optional<std::string> detail = std::nullopt,
            std::optional<double> fraction = std::nullopt) {
  if (progress) progress(ScanProgress{phase, std::string(message), std::move(detail), fraction});
}

std::vector<std::string> duArguments(const std::string& path, int depth) {
  return {"du", "-xk", "-d", std::to_string(depth), path};
}

// Runs a tool; absent when it could not run (missing, timed out, failed to start).
template <typename Call>
std::optional<ToolResult> attempt(Call&& call) {
  try {
    return call();
  } catch (const ToolError&) {
  } catch (const std::system_error&) {
  }
  return std::nullopt;
}

// The folder's own path followed by "/", the form every path below it begins with.
std::string folderPrefix(const std::string& folder) { return folder == "/" ? folder : folder + "/"; }

// What lies below the folder whose prefix is given, relative to it; absent for the folder
// itself (du's sum line) and for anything outside it.
std::optional<std::string_view> relativeTo(std::string_view path, std::string_view prefix) {
  if (!path.starts_with(prefix) || path.size() == prefix.size()) return std::nullopt;
  return path.substr(prefix.size());
}

}  // namespace

std::string_view rawValue(ScanEngine engine) { return engine == ScanEngine::du ? "du" : "walk"; }

std::optional<ScanEngine> scanEngineFromRaw(std::string_view raw) {
  if (raw == "walk") return ScanEngine::walk;
  if (raw == "du") return ScanEngine::du;
  return std::nullopt;
}

ScanEngine scanEngineFromEnvironment(const char* value) {
  return value ? scanEngineFromRaw(value).value_or(ScanEngine::walk) : ScanEngine::walk;
}

bool isCovered(std::string_view path, const std::vector<std::string>& covered) {
  // The last clause drops a folder that holds a measured rule path: its figure would count
  // those bytes a second time.
  for (const std::string& c : covered)
    if (isAtOrUnder(path, c) || isAtOrUnder(c, path)) return true;
  return false;
}

DeepScanner::DeepScanner(ToolRunning& runner, std::filesystem::path home, HasBinary hasBinary,
                         ScanEngine engine)
    : runner_(runner), home_(home.string()), hasBinary_(std::move(hasBinary)) {
  while (home_.size() > 1 && home_.ends_with('/')) home_.pop_back();
  if (engine == ScanEngine::walk) walk_ = std::make_unique<WalkEngine>();
}

std::string DeepScanner::absolutePath(const std::string& subpath) const {
  if (subpath.starts_with('/')) return subpath;
  return home_ == "/" ? "/" + subpath : home_ + "/" + subpath;
}

DeepScanResult DeepScanner::collect(const ProgressCallback& progress, std::stop_token stop) {
  report(progress, 1, ScanMessages::rulePhase);
  if (walk_) walkEverything(progress, stop);
  std::vector<Finding> findings = rulePathFindings(progress, stop);

  std::vector<std::string> covered;
  covered.reserve(findings.size());
  for (const Finding& f : findings) covered.push_back(f.path);

  report(progress, 2, ScanMessages::homePhase);
  std::vector<Finding> discovered = discoveryFindings(covered, progress, stop);

  report(progress, 3, ScanMessages::probePhase);
  DiskUsage disk = diskUsage("/");
  std::optional<int64_t> containers = runningContainers(stop);
  std::vector<std::string> snapshotNames = snapshots(stop);
  throwIfCancelled(stop);

  findings.insert(findings.end(), std::make_move_iterator(discovered.begin()),
                  std::make_move_iterator(discovered.end()));
  DeepScanResult result;
  result.diskTotalBytes = disk.total;
  result.diskFreeBytes = disk.free;
  result.findings = std::move(findings);
  result.runningContainers = containers;
  result.snapshots = std::move(snapshotNames);
  result.diskUsedSettingsBytes = settingsUsedBytes("/");
  return result;
}

std::vector<const Rule*> DeepScanner::presentRules() const {
  std::vector<const Rule*> present;
  for (const Rule& rule : rules()) {
    std::error_code ec;
    if (std::filesystem::exists(absolutePath(rule.subpath), ec)) present.push_back(&rule);
  }
  return present;
}

void DeepScanner::walkEverything(const ProgressCallback& progress, std::stop_token stop) {
  std::vector<DuQuestion> questions;
  for (const Rule* rule : presentRules()) questions.push_back({absolutePath(rule->subpath), 0});
  questions.push_back({home_, 1});
  questions.push_back({absolutePath("Library"), 1});
  // The walk is the long part of the scan: it shows as the rule phase at work, which it is.
  // Shown as the rule rows are: "~/" for what lies in the home folder.
  auto atWork = [this, &progress](const std::string& folder) {
    std::optional<std::string_view> relative = relativeTo(folder, folderPrefix(home_));
    report(progress, 1, ScanMessages::rulePhase, relative ? displayPath(*relative) : folder);
  };
  try {
    walk_->prepare(questions, atWork, stop);
  } catch (const std::system_error&) {
    walk_.reset();
  }
}

std::vector<Finding> DeepScanner::rulePathFindings(const ProgressCallback& progress,
                                                   std::stop_token stop) {
  const std::vector<const Rule*> present = presentRules();

  const double count = static_cast<double>(std::max<size_t>(present.size(), 1));
  std::vector<Finding> findings;
  findings.reserve(present.size());
  for (size_t i = 0; i < present.size(); ++i) {
    throwIfCancelled(stop);
    const Rule& rule = *present[i];
    report(progress, 1, ScanMessages::rulePhase, displayPath(rule.subpath),
           static_cast<double>(i) / count);
    std::vector<DuEntry> entries = du(absolutePath(rule.subpath), 0, stop);
    std::optional<int64_t> size;
    if (!entries.empty()) size = entries.front().bytes;
    findings.push_back(classify(rule.subpath, size, hasBinary_));
  }
  return subtractDescendants(findings);
}

std::vector<DuEntry> DeepScanner::du(const std::string& path, int depth, std::stop_token stop) {
  if (walk_) {
    try {
      return walk_->du(path, depth, stop);
    } catch (const Cancelled&) {
      return {};  // the caller looks for the stop at its next check
    } catch (const std::system_error&) {
      walk_.reset();
    }
  }
  auto result = attempt([&] { return runner_.run(duArguments(path, depth), std::nullopt, stop); });
  if (!result) return {};
  return parseDuEntries(result->stdoutText);
}

std::optional<std::vector<DuEntry>> DeepScanner::sweep(const std::string& path,
                                                       const ProgressCallback& progress,
                                                       std::stop_token stop) {
  if (walk_) return du(path, 1, stop);  // answered from the walk: no folder at work to show
  auto onLine = [&progress](const std::string& line) {
    size_t tab = line.find('\t');
    if (tab != std::string::npos) report(progress, 2, ScanMessages::homePhase, line.substr(tab + 1));
  };
  auto result = attempt([&] { return runner_.runStreaming(duArguments(path, 1), onLine, stop); });
  if (!result) return std::nullopt;
  return parseDuEntries(result->stdoutText);
}

std::vector<Finding> DeepScanner::discoveryFindings(const std::vector<std::string>& covered,
                                                    const ProgressCallback& progress,
                                                    std::stop_token stop) {
  std::optional<std::vector<DuEntry>> entries = sweep(home_, progress, stop);
  throwIfCancelled(stop);
  if (!entries) return {};

  const std::string prefix = folderPrefix(home_);
  std::vector<Finding> findings;
  for (const DuEntry& entry : *entries) {
    std::optional<std::string_view> relative = relativeTo(entry.path, prefix);
    // Library is swept on its own below; the program's own folder is never reported.
    if (!relative || *relative == "Library" || isOwnData(*relative) || isCovered(*relative, covered))
      continue;
    findings.push_back(classify(*relative, entry.bytes, hasBinary_));
  }
  std::vector<Finding> library = libraryDiscoveryFindings(covered, progress, stop);
  findings.insert(findings.end(), std::make_move_iterator(library.begin()),
                  std::make_move_iterator(library.end()));
  return findings;
}

std::vector<Finding> DeepScanner::libraryDiscoveryFindings(const std::vector<std::string>& covered,
                                                           const ProgressCallback& progress,
                                                           std::stop_token stop) {
  const std::string library = absolutePath("Library");
  std::optional<std::vector<DuEntry>> entries = sweep(library, progress, stop);
  if (!entries) return {};

  const std::string prefix = folderPrefix(library);
  std::vector<Finding> findings;
  for (const DuEntry& entry : *entries) {
    std::optional<std::string_view> rest = relativeTo(entry.path, prefix);
    if (!rest) continue;
    std::string relative = "Library/" + std::string(*rest);
    if (isCovered(relative, covered)) continue;
    findings.push_back(classify(relative, entry.bytes, hasBinary_));
  }
  return findings;
}

std::optional<int64_t> DeepScanner::runningContainers(std::stop_token stop) {
  auto result = attempt([&] { return runner_.run({"docker", "ps", "-q"}, 10.0, stop); });
  if (!result || result->returncode != 0) return std::nullopt;
  int64_t count = 0;
  for (std::string_view line : splitLines(result->stdoutText))
    if (!trimBlanks(line).empty()) ++count;
  return count;
}

std::vector<std::string> DeepScanner::snapshots(std::stop_token stop) {
  std::vector<std::string> first;
  auto tmutil = attempt([&] { return runner_.run({"tmutil", "listlocalsnapshots", "/"}, std::nullopt, stop); });
  if (tmutil && tmutil->returncode == 0) first = parseSnapshotList(tmutil->stdoutText);

  std::vector<std::string> second;
  auto diskutil = attempt(
      [&] { return runner_.run({"diskutil", "apfs", "listSnapshots", "/"}, std::nullopt, stop); });
  if (diskutil && diskutil->returncode == 0) second = parseDiskutilSnapshots(diskutil->stdoutText);

  return mergeSnapshotNames(first, second);
}

}  // namespace vorlan

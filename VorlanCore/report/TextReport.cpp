#include "report/TextReport.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace vorlan {
namespace {

constexpr std::string_view subLineIndent = "            └ ";


std::string joinLines(const std::vector<std::string>& lines) {
  return fmt::format("{}", fmt::join(lines, "\n"));
}

}  // namespace

std::string_view supportEmail() { return VORLAN_DEFAULT_SUPPORT_EMAIL; }

std::optional<std::string> contactNote(std::string_view email) {
  // Without an address the sentence would ask the user to write to nobody.
  if (email.empty()) return std::nullopt;
  return fmt::format("정리가 막막하면 {} 로 리포트를 붙여 보내주세요 — 안전한 순서를 알려드립니다.",
                     email);
}

std::map<Grade, int64_t> gradeTotals(const std::vector<Finding>& findings) {
  std::map<Grade, int64_t> totals;
  for (Grade g : gradeReportOrder) totals[g] = 0;
  for (const Finding& f : findings) totals[f.grade] += f.sizeBytes.value_or(0);
  return totals;
}

std::vector<GradeGroup> gradeGroups(const std::vector<Finding>& findings, int64_t minBytes) {
  std::vector<GradeGroup> groups;
  for (Grade grade : gradeReportOrder) {
    GradeGroup group{grade, {}};
    for (const Finding& f : findings)
      if (f.grade == grade && f.sizeBytes && *f.sizeBytes >= minBytes) group.findings.push_back(f);
    if (group.findings.empty()) continue;
    // Stable, so findings of equal size keep the order the scan found them in.
    std::stable_sort(group.findings.begin(), group.findings.end(),
                     [](const Finding& a, const Finding& b) { return *a.sizeBytes > *b.sizeBytes; });
    groups.push_back(std::move(group));
  }
  return groups;
}

std::optional<SettingsAction> settingsAction(std::string_view findingPath) {
  if (findingPath != "Library/Mobile Documents") return std::nullopt;
  return SettingsAction{
      "iCloud 설정 열기",
      "iCloud 화면에서 'iCloud Drive'를 클릭하면 'Mac 저장 공간 최적화' 스위치가 있습니다",
      {"x-apple.systempreferences:com.apple.systempreferences.AppleIDSettings?iCloud",
       "x-apple.systempreferences:com.apple.systempreferences.AppleIDSettings",
       "x-apple.systempreferences:"}};
}

std::optional<std::string> cleanupSummaryLine(int64_t staleBytes, int64_t orphanBytes) {
  std::vector<std::string> parts;
  if (staleBytes >= 1) parts.push_back("90일 미사용 " + formatGB(staleBytes));
  if (orphanBytes >= 1) parts.push_back("주인 없는 캐시 " + formatGB(orphanBytes));
  if (parts.empty()) return std::nullopt;
  std::string line(subLineIndent);
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) line += " · ";
    line += parts[i];
  }
  return line;
}

std::string renderReport(const DeepScanResult& result, int64_t minBytes, std::string_view email) {
  std::vector<std::string> lines{
      "=== Vorlan 시스템 데이터 해부 리포트 (읽기 전용) ===",
      fmt::format("디스크 전체 {} / 여유 {}", formatGB(result.diskTotalBytes),
                  formatGB(result.diskFreeBytes)),
  };
  if (result.runningContainers && *result.runningContainers >= 1)
    lines.push_back(fmt::format(
        "[주의] 지금 돌아가는 Docker 컨테이너 {}개 감지 — 실서비스 중일 수 있습니다. "
        "Docker 정리는 내역을 확인한 뒤에만 진행하세요.",
        *result.runningContainers));
  if (!result.snapshots.empty())
    lines.push_back(fmt::format("타임머신 로컬 스냅샷 {}개", result.snapshots.size()));

  std::vector<Finding> listed;
  for (const GradeGroup& group : gradeGroups(result.findings, minBytes)) {
    lines.emplace_back();
    lines.emplace_back(sectionTitle(group.grade));
    for (const Finding& f : group.findings) {
      const std::string shownPath = f.path.starts_with('/') ? f.path : "~/" + f.path;
      lines.push_back(fmt::format("  {:>8}  {} — {}", formatGB(f.sizeBytes.value_or(0)), shownPath,
                                  f.note));
      if (!f.hint.empty()) lines.push_back(std::string(subLineIndent) + f.hint);
      if (auto it = result.cleanupTotals.find(f.path); it != result.cleanupTotals.end())
        if (auto line = cleanupSummaryLine(it->second.staleBytes, it->second.orphanBytes))
          lines.push_back(*line);
      listed.push_back(f);
    }
  }

  const auto totals = gradeTotals(listed);
  lines.emplace_back();
  lines.push_back("즉시 안전 삭제 가능: " + formatGB(totals.at(Grade::safe)));
  lines.push_back("확인 후 삭제 후보: " + formatGB(totals.at(Grade::review)));
  lines.emplace_back("이 리포트는 아무것도 삭제하지 않았습니다. 항목별 안내를 확인 후 직접 진행하세요.");
  lines.emplace_back(
      "안내는 실측에 기반한 참고 정보이며, 삭제 실행과 그 결과는 사용자 책임입니다. 진행 전 "
      "중요한 데이터는 백업하세요.");
  if (auto note = contactNote(email)) lines.push_back(*note);
  lines.emplace_back(rescanNote);
  return joinLines(lines);
}

}  // namespace vorlan

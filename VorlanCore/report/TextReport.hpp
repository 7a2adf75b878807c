// The plain-text body of the scan report: disk figures, one section per grade with a row per
// finding large enough to list, the two totals and the closing notes. Pure logic.
#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scan/ScanRecords.hpp"

namespace vorlan {

inline constexpr std::string_view rescanNote =
    "2~3주 뒤 다시 스캔해 보세요 — 얼마나 다시 쌓이는지가 재발 범인을 알려줍니다.";

// Findings below this size stand in no report section (the ledger's sums still hold them).
inline constexpr int64_t reportMinBytes = 500'000'000;

// One report section: the findings of one grade, largest first.
struct GradeGroup {
  Grade grade = Grade::unknown;
  std::vector<Finding> findings;
  bool operator==(const GradeGroup&) const = default;
};

// Findings with a size of at least `minBytes`, grouped by gradeReportOrder, each group sorted
// largest first (equal sizes keep the scan's order); a grade with none gets no group.
std::vector<GradeGroup> gradeGroups(const std::vector<Finding>& findings,
                                    int64_t minBytes = reportMinBytes);

// How a finding leads to the system's settings: a button title, a line beside it and the
// URLs to try in order.
struct SettingsAction {
  std::string label;
  std::string caption;
  std::vector<std::string> urlCandidates;
  bool operator==(const SettingsAction&) const = default;
};

// Only the local iCloud Drive copy has one: the settings can make it smaller.
std::optional<SettingsAction> settingsAction(std::string_view findingPath);

// The support address set at build time (VORLAN_SUPPORT_EMAIL); empty when none was set.
std::string_view supportEmail();

// The line that points the user to `email`; absent when there is no address to point to.
std::optional<std::string> contactNote(std::string_view email = supportEmail());

// Bytes per grade, all four grades present; findings without a size add nothing.
std::map<Grade, int64_t> gradeTotals(const std::vector<Finding>& findings);

// The indented sub-line naming stale and ownerless bytes; absent when both are below 1.
std::optional<std::string> cleanupSummaryLine(int64_t staleBytes, int64_t orphanBytes);

// Lists findings of at least `minBytes` (an absent size counts as 0). Lines are joined by
// a line feed, with none at the end.
std::string renderReport(const DeepScanResult& result, int64_t minBytes,
                         std::string_view email = supportEmail());

}  // namespace vorlan

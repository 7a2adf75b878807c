// Balances what a scan measured against the System Data figure the user typed in, and the
// whole disk against the settings screen's total use. Pure logic: numbers and ready lines.
#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scan/ScanRecords.hpp"

namespace vorlan {

struct LedgerSummary {
  double claimedGB = 0;        // the stated figure, exactly as given
  double identifiedGB = 0;     // every ledger finding, any grade
  double coveragePercent = 0;  // identified of claimed, not clamped; 0 when claimed is not above 0
  double safeGB = 0;
  double neverGB = 0;
  std::string neverBreakdown;  // the three largest kept categories, one display line
  double remainderGB = 0;      // claimed minus identified, floored at 0
  double overshootGB = 0;      // identified minus claimed, floored at 0

  // What the user has to look at: review and unknown alike.
  double candidateGB() const { return identifiedGB - safeGB - neverGB; }
  // Much is missing and little was found: a reboot may tell a phantom from real files.
  bool showsPhantomTriage() const {
    return overshootGB == 0 && remainderGB >= 30.0 && coveragePercent < 60.0;
  }
  bool operator==(const LedgerSummary&) const = default;
};

struct BalanceSummary {
  double usedGB = 0;                 // total use as the settings screen shows it
  std::optional<double> appleGB;     // used minus the stated figure, floored at 0
  std::optional<double> systemGB;    // the stated figure
  bool operator==(const BalanceSummary&) const = default;
};

inline constexpr std::string_view phantomTriageNote =
    "※ 아직 못 찾은 용량이 큽니다 — 재부팅 후 다시 스캔해 보세요. 재부팅만으로 줄어들면 실제 "
    "파일이 아니라 macOS 문제(스냅샷·인덱싱)입니다.";

// True when the settings screen counts this finding path under System Data: absolute paths,
// and the home folder's dot folders and Library, but not the local iCloud Drive copy.
bool isSystemData(std::string_view path);

// Parses a decimal figure typed by a person: "123.4", "123,4", " 80 ". Rejects negatives,
// signs, exponents, inf/nan and trailing garbage.
std::optional<double> parseDecimalFigure(std::string_view text);

// Bytes per grade, all four present, of the findings the settings count as System Data: the
// sums the ledger is made of.
std::map<Grade, int64_t> systemDataTotals(const DeepScanResult& result);

// Absent exactly when no figure was stated.
std::optional<LedgerSummary> ledgerSummary(const DeepScanResult& result,
                                           std::optional<double> systemDataGB);
// Absent exactly when the settings total is unknown.
std::optional<BalanceSummary> balanceSummary(const DeepScanResult& result,
                                             std::optional<double> systemDataGB);
// Empty exactly when the settings total is unknown.
std::vector<std::string> balanceSheet(const DeepScanResult& result,
                                      std::optional<double> systemDataGB);
// A line when the local iCloud Drive copy holds 5 GB or more.
std::optional<std::string> icloudNote(const DeepScanResult& result);
// Empty exactly when no figure was stated.
std::vector<std::string> reconcile(const DeepScanResult& result,
                                   std::optional<double> systemDataGB);

}  // namespace vorlan

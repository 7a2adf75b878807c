#include "report/Ledger.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <utility>

namespace vorlan {
namespace {

constexpr std::string_view icloudPath = "Library/Mobile Documents";
constexpr int64_t icloudNoteMinBytes = 5'000'000'000;

// fmt never consults the locale unless asked to, so every figure reads with a point.
// A difference of sums in floating point can land a hair below zero (review of 0 after safe
// and kept are taken off); that must read 0.0, not -0.0.
std::string gb(double value) {
  std::string text = fmt::format("{:.1f}", value);
  return text == "-0.0" ? "0.0" : text;
}

double positivePart(double value) { return value > 0 ? value : 0.0; }

std::string breakdownLine(const std::vector<const Finding*>& kept) {
  std::map<std::string, int64_t> byCategory;
  for (const Finding* f : kept) byCategory[f->category] += f->sizeBytes.value_or(0);
  std::vector<std::pair<std::string, int64_t>> entries(byCategory.begin(), byCategory.end());
  // The map is already in ascending category order, so a stable sort by size breaks ties by name.
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  std::string line;
  for (size_t i = 0; i < entries.size() && i < 3; ++i) {
    if (i > 0) line += " · ";
    line += fmt::format("{} {}GB", entries[i].first, gb(static_cast<double>(entries[i].second) / GB));
  }
  return line;
}

}  // namespace

bool isSystemData(std::string_view path) {
  if (path.starts_with('/')) return true;
  if (path == icloudPath) return false;
  if (path.starts_with(icloudPath) && path.substr(icloudPath.size()).starts_with('/'))
    return false;
  const std::string_view first = path.substr(0, path.find('/'));
  return first.starts_with('.') || first == "Library";
}

std::optional<double> parseDecimalFigure(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  // Digits with at most one decimal separator, a point or a comma as people type it.
  std::string normal;
  bool separator = false, digit = false;
  for (char c : text) {
    if (c >= '0' && c <= '9') {
      digit = true;
      normal += c;
    } else if ((c == '.' || c == ',') && !separator) {
      separator = true;
      normal += '.';
    } else {
      return std::nullopt;
    }
  }
  if (!digit || normal.size() > 30) return std::nullopt;
  double value = 0;
  auto [end, ec] = std::from_chars(normal.data(), normal.data() + normal.size(), value);
  if (ec != std::errc{} || end != normal.data() + normal.size()) return std::nullopt;
  return value;
}

std::map<Grade, int64_t> systemDataTotals(const DeepScanResult& result) {
  std::map<Grade, int64_t> totals;
  for (Grade g : gradeAllCases) totals[g] = 0;
  for (const Finding& f : result.findings)
    if (isSystemData(f.path)) totals[f.grade] += f.sizeBytes.value_or(0);
  return totals;
}

std::optional<LedgerSummary> ledgerSummary(const DeepScanResult& result,
                                           std::optional<double> systemDataGB) {
  if (!systemDataGB) return std::nullopt;
  const auto totals = systemDataTotals(result);
  int64_t identified = 0;
  for (const auto& [grade, bytes] : totals) identified += bytes;
  std::vector<const Finding*> kept;
  for (const Finding& f : result.findings)
    if (isSystemData(f.path) && f.grade == Grade::never) kept.push_back(&f);
  const double claimed = *systemDataGB * GB;
  const double found = static_cast<double>(identified);
  LedgerSummary s;
  s.claimedGB = *systemDataGB;
  s.identifiedGB = found / GB;
  s.coveragePercent = claimed > 0 ? found / claimed * 100 : 0;
  s.safeGB = static_cast<double>(totals.at(Grade::safe)) / GB;
  s.neverGB = static_cast<double>(totals.at(Grade::never)) / GB;
  s.neverBreakdown = breakdownLine(kept);
  s.remainderGB = positivePart(claimed - found) / GB;
  s.overshootGB = positivePart(found - claimed) / GB;
  return s;
}

std::optional<BalanceSummary> balanceSummary(const DeepScanResult& result,
                                             std::optional<double> systemDataGB) {
  if (!result.diskUsedSettingsBytes) return std::nullopt;
  const double used = static_cast<double>(*result.diskUsedSettingsBytes);
  BalanceSummary s;
  s.usedGB = used / GB;
  if (systemDataGB) {
    s.appleGB = positivePart(used - *systemDataGB * GB) / GB;
    s.systemGB = *systemDataGB;
  }
  return s;
}

std::vector<std::string> balanceSheet(const DeepScanResult& result,
                                      std::optional<double> systemDataGB) {
  const auto s = balanceSummary(result, systemDataGB);
  if (!s) return {};
  std::vector<std::string> lines{
      fmt::format("내 맥 저장공간 정산 — 총 사용량 {}GB (설정 기준, 근사)", gb(s->usedGB))};
  if (s->appleGB && s->systemGB) {
    lines.push_back(fmt::format("├─ 애플 카테고리 합계: {}GB (문서·응용 프로그램·사진·macOS 등)",
                                gb(*s->appleGB)));
    lines.push_back(
        fmt::format("└─ 시스템 데이터: {}GB ← 이 리포트가 해부하는 영역", gb(*s->systemGB)));
  } else {
    lines.emplace_back(
        "└─ '시스템 데이터' 규모는 설정 > 일반 > 저장 공간에서 확인해 다음 스캔에 입력하세요");
  }
  return lines;
}

std::optional<std::string> icloudNote(const DeepScanResult& result) {
  const auto it = std::find_if(result.findings.begin(), result.findings.end(),
                               [](const Finding& f) { return f.path == icloudPath; });
  if (it == result.findings.end() || !it->sizeBytes || *it->sizeBytes < icloudNoteMinBytes)
    return std::nullopt;
  return fmt::format(
      "※ iCloud Drive 로컬 사본(~/Library/Mobile Documents)이 이 맥에서 {}GB를 차지합니다. "
      "설정은 이걸 시스템 데이터가 아닌 iCloud Drive 칸으로 세므로 위 정산에서도 뺐습니다 — "
      "지우면 안 되는 실데이터고, 줄이려면 'Mac 저장 공간 최적화'를 켜세요.",
      gb(static_cast<double>(*it->sizeBytes) / GB));
}

std::vector<std::string> reconcile(const DeepScanResult& result,
                                   std::optional<double> systemDataGB) {
  const auto s = ledgerSummary(result, systemDataGB);
  if (!s) return {};
  std::vector<std::string> lines{fmt::format("설정이 말하는 시스템 데이터: {}GB", gb(s->claimedGB))};
  if (s->overshootGB > 0)
    lines.push_back(fmt::format("실측으로 정체를 찾은 것: {}GB", gb(s->identifiedGB)));
  else
    lines.push_back(fmt::format("실측으로 정체를 찾은 것: {}GB ({:.0f}%)", gb(s->identifiedGB),
                                s->coveragePercent));
  lines.push_back(fmt::format("├─ 즉시 안전 삭제 가능: {}GB", gb(s->safeGB)));
  if (s->neverGB > 0) {
    lines.push_back(fmt::format("├─ 확인 후 삭제 후보: {}GB", gb(s->candidateGB())));
    lines.push_back(
        fmt::format("└─ 지울 수 없는 실데이터: {}GB — {}", gb(s->neverGB), s->neverBreakdown));
  } else {
    lines.push_back(fmt::format("└─ 확인 후 삭제 후보: {}GB", gb(s->candidateGB())));
  }
  if (s->overshootGB > 0)
    lines.push_back(fmt::format(
        "※ 설정 수치보다 {}GB 많게 잡힌 이유: 애플은 iCloud Drive 등을 시스템 데이터가 아닌 "
        "다른 칸으로 셉니다",
        gb(s->overshootGB)));
  else
    lines.push_back(
        fmt::format("아직 못 찾은 것: {}GB — macOS 시스템 영역, /private/var 등", gb(s->remainderGB)));
  if (s->showsPhantomTriage()) lines.emplace_back(phantomTriageNote);
  lines.emplace_back("※ 애플은 시스템 데이터 회계를 공개하지 않으므로 이 정산은 근사치입니다.");
  return lines;
}

}  // namespace vorlan

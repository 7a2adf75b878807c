#include "cleanup/CleanupCopy.hpp"

#include <fmt/ranges.h>

#include "scan/ScanRecords.hpp"

namespace vorlan {

std::string immediateFigure(int64_t bytes) { return "지금 바로 확보 " + formatGB(bytes); }

std::string heldFigure(int64_t bytes) { return "7일 뒤 확보 " + formatGB(bytes) + " — 그때까지 되돌릴 수 있음"; }

std::string skippedInUseLine(const std::vector<std::string>& shownPaths) {
  return fmt::format("실행 중이라 건너뜀: {} — 앱을 종료한 뒤 다시 시도해 주세요", fmt::join(shownPaths, ", "));
}

std::string consequence(CleanupVerdict verdict, bool purgeImmediately,
                        const std::optional<DictEntry>& entry,
                        const std::optional<InheritedKnowledge>& inherited) {
  switch (verdict) {
    case CleanupVerdict::orphan: return std::string(CleanupCopy::orphan);
    case CleanupVerdict::stale:
      // Age alone always goes through the hold; the words only say whether it comes back.
      if (entry && entry->regenerates) return std::string(CleanupCopy::regenerableHeld);
      if (inherited && inherited->grade == Grade::safe)
        return std::string(CleanupCopy::regenerableHeld);
      return std::string(CleanupCopy::staleData);
    case CleanupVerdict::regenerable:
      return std::string(purgeImmediately ? CleanupCopy::regenerable : CleanupCopy::regenerableHeld);
    case CleanupVerdict::inUse: return std::string(CleanupCopy::inUse);
    case CleanupVerdict::needsReview:
      if (entry && !entry->risk.empty()) return entry->risk;
      if (inherited && !inherited->hint.empty()) return inherited->hint;
      return std::string(CleanupCopy::reviewDefault);
    case CleanupVerdict::keep: return std::string(CleanupCopy::keep);
    case CleanupVerdict::unknown: return std::string(CleanupCopy::unknown);
  }
  return std::string(CleanupCopy::unknown);
}

CleanupItem explained(const CleanupItem& item, const DictEntry& entry) {
  if (item.verdict == CleanupVerdict::inUse || item.verdict == CleanupVerdict::keep ||
      entry.what.empty())
    return item;
  // Only words change: an answer from outside must never tick, untick, unlock or shorten.
  CleanupItem copy = item;
  copy.what = entry.what;
  copy.reason = std::string(CleanupCopy::explainedReason);
  if (!entry.risk.empty()) copy.consequence = entry.risk + " · " + item.consequence;
  return copy;
}

std::vector<CleanupItem> applyExplanations(const std::vector<CleanupItem>& items,
                                           const std::map<std::string, DictEntry>& explanations) {
  std::vector<CleanupItem> result;
  result.reserve(items.size());
  for (const auto& item : items) {
    auto found = explanations.find(item.path);
    result.push_back(found == explanations.end() ? item : explained(item, found->second));
  }
  return result;
}

}  // namespace vorlan

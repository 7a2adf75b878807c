#include "cleanup/CleanupPlan.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "cleanup/AppOwnership.hpp"
#include "cleanup/CleanupCopy.hpp"
#include "scan/Classification.hpp"
#include "scan/RuleTable.hpp"

namespace vorlan {

namespace {

constexpr int64_t kSecondsPerDay = 86'400;

size_t characterCount(std::string_view text) {
  size_t count = 0;
  for (unsigned char c : text)
    if ((c & 0xC0) != 0x80) ++count;
  return count;
}

struct Decision {
  CleanupVerdict verdict;
  std::string reason;
  bool purgeImmediately = false;
};

constexpr std::string_view kRunningReason = "지금 실행 중입니다";
constexpr std::string_view kOrphanReason = "주인을 찾지 못했습니다";
constexpr std::string_view kStaleReasonSuffix = "일째 바뀌지 않았습니다";
constexpr std::string_view kRegeneratesReason = "지워도 다시 만들어집니다";
constexpr std::string_view kUnknownReason = "아직 무엇인지 모릅니다";

// The first test that holds decides. What the user might lose is asked first, the age of the
// data only after ownership, so that a folder of a running or removed application is judged
// by that and not by its age.
Decision decide(const std::string& name, const UsageStat& usage, int64_t now,
                const std::optional<DictEntry>& entry,
                const std::optional<InheritedKnowledge>& inherited,
                const std::set<std::string>& installed, const std::set<std::string>& running) {
  if (entry && !entry->risk.empty())
    return {CleanupVerdict::needsReview, std::string(CleanupCopy::reviewReason)};
  if (entry && entry->grade == Grade::never) return {CleanupVerdict::keep, entry->what};
  if (isCurrentlyRunning(name, running))
    return {CleanupVerdict::inUse, std::string(kRunningReason)};
  const bool identifier = isReverseDNS(name);
  if (identifier && !isRelatedToInstalledApp(name, installed) && !isFirstParty(name))
    return {CleanupVerdict::orphan, std::string(kOrphanReason)};
  // Whole days must exceed staleDays; a folder without files, or dated in the future, has no age.
  if (usage.lastChangedEpoch >= 1 &&
      now - usage.lastChangedEpoch >= (CleanupPolicy::staleDays + 1) * kSecondsPerDay) {
    int64_t days = (now - usage.lastChangedEpoch) / kSecondsPerDay;
    return {CleanupVerdict::stale, fmt::format("{}{}", days, kStaleReasonSuffix)};
  }
  if (entry && entry->regenerates)
    return {CleanupVerdict::regenerable, std::string(kRegeneratesReason), true};
  if (identifier && isOwnedByInstalledApp(name, installed))
    return {CleanupVerdict::regenerable, std::string(kRegeneratesReason), true};
  if (inherited) {
    switch (inherited->grade) {
      case Grade::safe: return {CleanupVerdict::regenerable, std::string(kRegeneratesReason)};
      case Grade::review:
        return {CleanupVerdict::needsReview, std::string(CleanupCopy::reviewReason)};
      case Grade::never: return {CleanupVerdict::keep, inherited->what};
      case Grade::unknown: break;
    }
  }
  return {CleanupVerdict::unknown, std::string(kUnknownReason)};
}

}  // namespace

std::string_view rawValue(CleanupVerdict verdict) {
  switch (verdict) {
    case CleanupVerdict::orphan: return "orphan";
    case CleanupVerdict::stale: return "stale";
    case CleanupVerdict::regenerable: return "regenerable";
    case CleanupVerdict::inUse: return "in_use";
    case CleanupVerdict::needsReview: return "needs_review";
    case CleanupVerdict::keep: return "keep";
    case CleanupVerdict::unknown: return "unknown";
  }
  return "unknown";
}

std::optional<CleanupVerdict> cleanupVerdictFromRaw(std::string_view raw) {
  for (CleanupVerdict verdict : cleanupVerdictAllCases)
    if (rawValue(verdict) == raw) return verdict;
  return std::nullopt;
}

bool isCheckedByDefault(CleanupVerdict verdict) {
  return verdict == CleanupVerdict::orphan || verdict == CleanupVerdict::stale ||
         verdict == CleanupVerdict::regenerable;
}

std::optional<InheritedKnowledge> inheritedKnowledge(std::string_view path) {
  const Rule* best = nullptr;
  size_t bestLength = 0;
  for (const Rule& rule : rules()) {
    // Absolute rules describe places outside the home folder; nothing there is inherited.
    if (rule.subpath.starts_with('/')) continue;
    if (!isAtOrUnder(path, rule.subpath)) continue;
    size_t length = characterCount(rule.subpath);
    if (!best || length > bestLength) {
      best = &rule;
      bestLength = length;
    }
  }
  if (!best) return std::nullopt;
  return InheritedKnowledge{best->grade, best->note, best->hint};
}

CleanupItem judgeFolder(std::string_view parent, const std::string& name, const UsageStat& usage,
                        const KnowledgeDictionary& dictionary, const std::set<std::string>& installed,
                        const std::set<std::string>& running, int64_t now,
                        const InheritLookup& inherit) {
  std::string path = fmt::format("{}/{}", parent, name);
  std::optional<DictEntry> entry = dictionary.lookup(path);
  std::optional<InheritedKnowledge> inherited =
      inherit ? inherit(path) : std::optional<InheritedKnowledge>{};
  Decision decision = decide(name, usage, now, entry, inherited, installed, running);

  CleanupItem item;
  item.name = name;
  item.path = std::move(path);
  item.bytes = usage.bytes;
  item.lastChangedEpoch = usage.lastChangedEpoch;
  item.fileCount = usage.fileCount;
  item.verdict = decision.verdict;
  item.checked = isCheckedByDefault(decision.verdict);
  item.reason = std::move(decision.reason);
  if (entry) item.deletePaths = entry->deletePaths;
  if (entry && !entry->what.empty())
    item.what = entry->what;
  else if (inherited)
    item.what = inherited->what;
  item.consequence = consequence(decision.verdict, decision.purgeImmediately, entry, inherited);
  item.purgeImmediately = decision.purgeImmediately;
  return item;
}

std::vector<CleanupItem> buildCleanupPlan(std::string_view parent,
                                          const std::map<std::string, UsageStat>& children,
                                          const KnowledgeDictionary& dictionary,
                                          const std::set<std::string>& installed,
                                          const std::set<std::string>& running, int64_t now,
                                          const InheritLookup& inherit) {
  std::vector<CleanupItem> rows;
  rows.reserve(children.size());
  // The map is ordered by name, which gives equal sizes their order below.
  for (const auto& [name, usage] : children)
    rows.push_back(judgeFolder(parent, name, usage, dictionary, installed, running, now, inherit));
  std::stable_sort(rows.begin(), rows.end(),
                   [](const CleanupItem& a, const CleanupItem& b) { return a.bytes > b.bytes; });
  return rows;
}

CleanupTotals cleanupTotals(const std::vector<CleanupItem>& items) {
  CleanupTotals totals;
  for (const auto& item : items) {
    if (item.verdict == CleanupVerdict::stale) totals.staleBytes += item.bytes;
    if (item.verdict == CleanupVerdict::orphan) totals.orphanBytes += item.bytes;
  }
  return totals;
}

}  // namespace vorlan

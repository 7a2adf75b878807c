// Turns the measured child folders of the cleanup parents into rows of a plan: one verdict
// per folder, the words that explain it, and whether it starts ticked.
#pragma once
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "cleanup/KnowledgeDictionary.hpp"
#include "platform/UsageMeasurement.hpp"
#include "scan/ScanRecords.hpp"

namespace vorlan {

namespace CleanupPolicy {
// A folder is stale when its whole days of age exceed this.
inline constexpr int64_t staleDays = 90;
// Days that a quarantine batch is held before it is purged.
inline constexpr int64_t quarantineDays = 7;
// Rows below this size are not shown, not preselected and not reported; decimal bytes.
inline constexpr int64_t minVisibleBytes = 50'000'000;
// Home-relative parents whose children become rows, in this order.
inline constexpr std::array<std::string_view, 9> expandedParents{
    "Library/Caches",
    "Library/Application Support",
    "Library/Group Containers",
    "Library/Developer/CoreSimulator",
    "Library/Developer/Xcode/DerivedData",
    ".cache",
    ".gradle/caches",
    ".npm",
    ".bun/install",
};
}  // namespace CleanupPolicy

enum class CleanupVerdict { orphan, stale, regenerable, inUse, needsReview, keep, unknown };

inline constexpr std::array<CleanupVerdict, 7> cleanupVerdictAllCases{
    CleanupVerdict::orphan, CleanupVerdict::stale,       CleanupVerdict::regenerable,
    CleanupVerdict::inUse,  CleanupVerdict::needsReview, CleanupVerdict::keep,
    CleanupVerdict::unknown};

std::string_view rawValue(CleanupVerdict verdict);
std::optional<CleanupVerdict> cleanupVerdictFromRaw(std::string_view raw);
// Only verdicts that promise nothing is lost start ticked: orphan, stale, regenerable.
bool isCheckedByDefault(CleanupVerdict verdict);

struct CleanupItem {
  std::string name;               // the child folder's name
  std::string path;               // parent + "/" + name, home-relative
  int64_t bytes = 0;              // allocated bytes
  int64_t lastChangedEpoch = 0;   // 0 when the folder holds no regular file
  int64_t fileCount = 0;
  CleanupVerdict verdict = CleanupVerdict::unknown;
  bool checked = false;           // the plan's own tick
  std::string reason;
  std::vector<std::string> deletePaths;  // from the dictionary entry
  std::string what;
  std::string consequence;
  bool purgeImmediately = false;  // skips the hold when carried out

  // Whole folders only: a row whose entry names narrower paths explains but can't be ticked.
  bool isExecutable() const { return verdict != CleanupVerdict::keep && deletePaths.empty(); }
  bool operator==(const CleanupItem&) const = default;
};

// What a folder inherits from the closest home-relative rule of the rule table.
struct InheritedKnowledge {
  Grade grade = Grade::unknown;
  std::string what;  // the rule's note
  std::string hint;  // the rule's hint
  bool operator==(const InheritedKnowledge&) const = default;
};

using InheritLookup = std::function<std::optional<InheritedKnowledge>(std::string_view path)>;

// The rule table's knowledge for `path`: the longest home-relative rule at or above it.
std::optional<InheritedKnowledge> inheritedKnowledge(std::string_view path);

// The row of one measured child folder of `parent`. A pure function: a row depends on its own
// folder only, so rows can be shown one by one while the others are still measured.
CleanupItem judgeFolder(std::string_view parent, const std::string& name, const UsageStat& usage,
                        const KnowledgeDictionary& dictionary, const std::set<std::string>& installed,
                        const std::set<std::string>& running, int64_t now,
                        const InheritLookup& inherit);

// Rows for the children of `parent`, largest first, equal sizes by name. A pure function.
std::vector<CleanupItem> buildCleanupPlan(std::string_view parent,
                                          const std::map<std::string, UsageStat>& children,
                                          const KnowledgeDictionary& dictionary,
                                          const std::set<std::string>& installed,
                                          const std::set<std::string>& running, int64_t now,
                                          const InheritLookup& inherit);

// Stale and orphan bytes over all rows, whatever their size.
CleanupTotals cleanupTotals(const std::vector<CleanupItem>& items);

}  // namespace vorlan

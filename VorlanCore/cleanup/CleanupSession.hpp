// Loading the cleanup plan from a home folder, and the figures taken from it: which rows show,
// which start ticked, and how much the ticks free at once or after the hold. Shared by the
// command line and the desktop app.
#pragma once
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "cleanup/CleanupPlan.hpp"
#include "cleanup/KnowledgeDictionary.hpp"

namespace vorlan {

struct PlanLoadProgress {
  std::string parent;        // home-relative parent of the folder measured last
  int64_t foldersDone = 0;   // child folders measured so far, over all parents
  int64_t foldersTotal = 0;  // child folders found under all parents
  CleanupItem row;           // the row of the folder measured last, as the plan will hold it
  bool operator==(const PlanLoadProgress&) const = default;
};

// Called one call at a time, possibly from a measuring thread.
using PlanLoadProgressFn = std::function<void(const PlanLoadProgress&)>;

struct LoadedPlan {
  std::vector<CleanupItem> items;              // the whole plan, largest first
  std::vector<std::string> unreadableParents;  // present but could not be listed; no rows
  bool operator==(const LoadedPlan&) const = default;
};

// Measures the children of every cleanup parent under `home`, judges them and sorts the rows
// stably by size, so equal sizes keep parent order and, within a parent, name order.
// Explanations already held are applied again. `threads` only changes how fast: the rows are
// the same for any count. Throws Cancelled when `stop` is requested.
LoadedPlan loadCleanupPlan(const std::filesystem::path& home, const KnowledgeDictionary& dictionary,
                           const std::set<std::string>& installed,
                           const std::set<std::string>& running, int64_t now,
                           const std::map<std::string, DictEntry>& explanations = {},
                           const PlanLoadProgressFn& progress = {}, unsigned threads = 1,
                           std::stop_token stop = {});

// A sensible number of measuring threads for this machine.
unsigned defaultMeasuringThreads();

// Rows of at least CleanupPolicy::minVisibleBytes, in plan order.
std::vector<CleanupItem> visibleItems(const std::vector<CleanupItem>& items);

// The ticks a fresh plan starts with: ticked by the plan, executable and visible.
std::set<std::string> initialChecked(const std::vector<CleanupItem>& items);

// Sums of bytes over the rows whose path is ticked: all, those purged at once, those held.
int64_t selectedBytes(const std::vector<CleanupItem>& items, const std::set<std::string>& checked);
int64_t selectedImmediateBytes(const std::vector<CleanupItem>& items,
                               const std::set<std::string>& checked);
int64_t selectedHeldBytes(const std::vector<CleanupItem>& items,
                          const std::set<std::string>& checked);

}  // namespace vorlan

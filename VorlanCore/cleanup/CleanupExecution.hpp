// Carrying out the ticked rows of a cleanup plan: a last look at what runs now, one held batch
// and one batch purged at once, and the events that tell what was done and what the user
// refused. Shared by the command line and the desktop app; sending the events is the caller's.
#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "cleanup/CleanupPlan.hpp"
#include "quarantine/Quarantine.hpp"

namespace vorlan {

// One cleanup event to report: "deleted", "purged_immediate" or "unchecked", with its rows.
struct CleanupEvent {
  std::string event;
  std::vector<CleanupItem> items;
  bool operator==(const CleanupEvent&) const = default;
};

// The ticked paths sorted and split: what an application running now holds, what is purged at
// once (its row says so) and what is held (all others, paths without a row included).
struct CleanupSplit {
  std::vector<std::string> skippedInUse;
  std::vector<std::string> immediate;
  std::vector<std::string> held;
  bool operator==(const CleanupSplit&) const = default;
};

// "unchecked": the rows the plan proposed (ticked, executable, shown) that the user refused;
// nothing when there are none.
std::optional<CleanupEvent> refusedEvent(const std::vector<CleanupItem>& items,
                                         const std::set<std::string>& checked);

CleanupSplit splitForExecution(std::vector<std::string> paths, const std::vector<CleanupItem>& items,
                               const std::set<std::string>& running);

struct CleanupOutcome {
  std::vector<std::string> skippedInUse;
  std::optional<QuarantineBatch> heldBatch;
  std::optional<QuarantineBatch> immediateBatch;
  bool immediatePurged = false;  // false also when there was no immediate batch
  int64_t freedBytes = 0;        // freed at once by the purge; 0 when it failed
  // The batch that stays in the quarantine from this run, for a panel to show; absent when
  // the run left none (then the caller keeps what it showed before).
  std::optional<QuarantineBatch> lastBatch;
  std::optional<std::string> executeError;  // "삭제하지 못했습니다: " and what went wrong
  FailureReasons failureReasons;            // why each of the batches' `failures` stayed
  std::vector<std::string> processed;       // originals of the items that left home
  std::vector<CleanupEvent> events;         // in the order to send; none with an empty list
  std::vector<CleanupItem> items;           // the plan without the processed rows
  std::set<std::string> checked;            // the ticks without the processed paths
  bool operator==(const CleanupOutcome&) const = default;
};

// Purges a batch by id; throws on failure. The default is the quarantine's own purge.
using BatchPurge = std::function<void(const Quarantine& quarantine, const std::string& id)>;

// `paths` are home-relative; `items` and `checked` are the plan and the ticks as they stand;
// `running` is taken anew by the caller just before. Never throws: a failed move becomes
// `executeError`, and what an earlier move of the run achieved stands.
CleanupOutcome executeCleanup(const std::vector<std::string>& paths, const std::vector<CleanupItem>& items,
                              const std::set<std::string>& checked, const std::set<std::string>& running,
                              const Quarantine& quarantine, int64_t now, std::stop_token stop = {},
                              const BatchPurge& purge = {});

}  // namespace vorlan

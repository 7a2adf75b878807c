#include "cleanup/CleanupExecution.hpp"

#include <algorithm>
#include <exception>
#include <map>

#include "cleanup/AppOwnership.hpp"

namespace vorlan {
namespace {

std::string lastComponent(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::vector<CleanupItem> rowsFor(const std::vector<CleanupItem>& items, const std::set<std::string>& paths) {
  std::vector<CleanupItem> rows;
  for (const auto& item : items)
    if (paths.contains(item.path)) rows.push_back(item);
  return rows;
}

void addEvent(CleanupOutcome& outcome, std::string name, std::vector<CleanupItem> rows) {
  if (!rows.empty()) outcome.events.push_back({std::move(name), std::move(rows)});
}

}  // namespace

std::optional<CleanupEvent> refusedEvent(const std::vector<CleanupItem>& items,
                                         const std::set<std::string>& checked) {
  std::vector<CleanupItem> refused;
  for (const auto& item : items)
    if (item.checked && item.isExecutable() && item.bytes >= CleanupPolicy::minVisibleBytes &&
        !checked.contains(item.path))
      refused.push_back(item);
  if (refused.empty()) return std::nullopt;
  return CleanupEvent{"unchecked", std::move(refused)};
}

CleanupSplit splitForExecution(std::vector<std::string> paths, const std::vector<CleanupItem>& items,
                               const std::set<std::string>& running) {
  std::sort(paths.begin(), paths.end());
  std::map<std::string, const CleanupItem*> byPath;
  for (const auto& item : items) byPath.emplace(item.path, &item);
  CleanupSplit split;
  for (auto& path : paths) {
    // An application started since the plan was built keeps its folder, whatever the row says.
    if (isCurrentlyRunning(lastComponent(path), running)) {
      split.skippedInUse.push_back(std::move(path));
      continue;
    }
    auto row = byPath.find(path);
    if (row != byPath.end() && row->second->purgeImmediately)
      split.immediate.push_back(std::move(path));
    else
      split.held.push_back(std::move(path));
  }
  return split;
}

CleanupOutcome executeCleanup(const std::vector<std::string>& paths, const std::vector<CleanupItem>& items,
                              const std::set<std::string>& checked, const std::set<std::string>& running,
                              const Quarantine& quarantine, int64_t now, std::stop_token stop,
                              const BatchPurge& purge) {
  CleanupOutcome outcome;
  CleanupSplit split = splitForExecution(paths, items, running);
  outcome.skippedInUse = split.skippedInUse;
  std::set<std::string> processed;
  auto takeProcessed = [&](const QuarantineBatch& batch) {
    for (const auto& item : batch.items) {
      outcome.processed.push_back(item.original);
      processed.insert(item.original);
    }
  };

  if (!split.held.empty() || !split.immediate.empty()) {
    try {
      if (!split.held.empty()) {
        outcome.heldBatch = quarantine.move(split.held, now, stop, &outcome.failureReasons);
        // A run that moved nothing left no batch behind.
        if (!outcome.heldBatch->items.empty()) outcome.lastBatch = outcome.heldBatch;
        takeProcessed(*outcome.heldBatch);
      }
      if (!split.immediate.empty()) {
        // An immediate deletion is a move into a batch of its own, purged at once: the same
        // checks and the same measurement as a held one, and a failed purge leaves a hold.
        outcome.immediateBatch = quarantine.move(split.immediate, now, stop, &outcome.failureReasons);
        const QuarantineBatch& batch = *outcome.immediateBatch;
        takeProcessed(batch);
        try {
          // Nothing moved leaves no batch to purge.
          if (!batch.items.empty() && purge)
            purge(quarantine, batch.id);
          else if (!batch.items.empty())
            quarantine.purge(batch.id);
          outcome.immediatePurged = true;
        } catch (const std::exception&) {
          outcome.immediatePurged = false;
        }
        if (outcome.immediatePurged) {
          for (const auto& item : batch.items) outcome.freedBytes = addBytes(outcome.freedBytes, item.bytes);
          std::set<std::string> originals;
          for (const auto& item : batch.items) originals.insert(item.original);
          addEvent(outcome, "purged_immediate", rowsFor(items, originals));
        } else {
          outcome.lastBatch = batch;
        }
      }
      addEvent(outcome, "deleted", rowsFor(items, processed));
    } catch (const std::exception& error) {
      outcome.executeError = "삭제하지 못했습니다: " + describeQuarantineFailure(error);
    }
  }

  if (auto refused = refusedEvent(items, checked)) outcome.events.push_back(std::move(*refused));

  for (const auto& item : items)
    if (!processed.contains(item.path)) outcome.items.push_back(item);
  for (const auto& path : checked)
    if (!processed.contains(path)) outcome.checked.insert(path);
  return outcome;
}

}  // namespace vorlan

#include "cleanup/CleanupSession.hpp"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>

#include "Cancelled.hpp"
#include "cleanup/CleanupCopy.hpp"
#include "platform/UsageMeasurement.hpp"

namespace vorlan {

namespace {

struct MeasureJob {
  size_t parent;  // index into expandedParents
  std::string name;
  CleanupItem row;
};

// Walks and judges every job's folder. Each folder is walked whole by one thread, so a result
// never depends on how the work was shared out.
void measureAll(const std::filesystem::path& home, std::vector<MeasureJob>& jobs,
                const std::function<CleanupItem(std::string_view, const std::string&, const UsageStat&)>& judge,
                const PlanLoadProgressFn& progress, unsigned threads, std::stop_token stop) {
  std::atomic<size_t> next{0};
  std::mutex progressLock;
  int64_t done = 0;
  std::exception_ptr failure;
  std::atomic<bool> failed{false};

  auto worker = [&] {
    try {
      for (size_t i = next++; i < jobs.size() && !failed; i = next++) {
        MeasureJob& job = jobs[i];
        const std::string_view parent = CleanupPolicy::expandedParents[job.parent];
        job.row = judge(parent, job.name, walkTree(home / parent / job.name, stop));
        std::lock_guard guard(progressLock);
        ++done;
        if (progress)
          progress({std::string(parent), done, static_cast<int64_t>(jobs.size()), job.row});
      }
    } catch (...) {
      std::lock_guard guard(progressLock);
      if (!failure) failure = std::current_exception();
      failed = true;
    }
  };

  const size_t helpers = std::min<size_t>(threads > 0 ? threads - 1 : 0, jobs.size());
  {
    std::vector<std::jthread> pool;
    for (size_t i = 0; i < helpers; ++i) pool.emplace_back(worker);
    worker();
  }
  if (failure) std::rethrow_exception(failure);
}

int64_t sumOfTicked(const std::vector<CleanupItem>& items, const std::set<std::string>& checked,
                    std::optional<bool> purgeImmediately) {
  int64_t total = 0;
  for (const auto& item : items) {
    if (!checked.contains(item.path)) continue;
    if (purgeImmediately && item.purgeImmediately != *purgeImmediately) continue;
    total += item.bytes;
  }
  return total;
}

}  // namespace

LoadedPlan loadCleanupPlan(const std::filesystem::path& home, const KnowledgeDictionary& dictionary,
                           const std::set<std::string>& installed,
                           const std::set<std::string>& running, int64_t now,
                           const std::map<std::string, DictEntry>& explanations,
                           const PlanLoadProgressFn& progress, unsigned threads,
                           std::stop_token stop) {
  LoadedPlan plan;
  std::vector<MeasureJob> jobs;
  for (size_t p = 0; p < CleanupPolicy::expandedParents.size(); ++p) {
    throwIfCancelled(stop);
    const std::string_view parent = CleanupPolicy::expandedParents[p];
    ChildFolders children = childFolders(home / parent);
    // A parent that does not exist is normal (the tool was never used); one that exists and
    // cannot be read is worth telling.
    if (!children.listed && !children.missing) plan.unreadableParents.emplace_back(parent);
    // Name order within a parent gives rows of equal size their order.
    std::sort(children.names.begin(), children.names.end());
    for (auto& name : children.names) jobs.push_back({p, std::move(name), {}});
  }

  auto judge = [&](std::string_view parent, const std::string& name, const UsageStat& usage) {
    CleanupItem row = judgeFolder(parent, name, usage, dictionary, installed, running, now,
                                  inheritedKnowledge);
    return explanations.empty() ? row : applyExplanations({row}, explanations).front();
  };
  measureAll(home, jobs, judge, progress, threads, stop);
  throwIfCancelled(stop);

  std::vector<CleanupItem> rows;
  rows.reserve(jobs.size());
  for (auto& job : jobs) rows.push_back(std::move(job.row));
  std::stable_sort(rows.begin(), rows.end(),
                   [](const CleanupItem& a, const CleanupItem& b) { return a.bytes > b.bytes; });
  plan.items = std::move(rows);
  return plan;
}

unsigned defaultMeasuringThreads() {
  // Warm walks are bound by system calls, which scale with cores; a cold disk gains from a
  // few requests in flight as well. More than eight only adds contention.
  return std::clamp(std::thread::hardware_concurrency(), 2u, 8u);
}

std::vector<CleanupItem> visibleItems(const std::vector<CleanupItem>& items) {
  std::vector<CleanupItem> visible;
  std::copy_if(items.begin(), items.end(), std::back_inserter(visible), [](const CleanupItem& item) {
    return item.bytes >= CleanupPolicy::minVisibleBytes;
  });
  return visible;
}

std::set<std::string> initialChecked(const std::vector<CleanupItem>& items) {
  std::set<std::string> checked;
  for (const auto& item : items)
    if (item.checked && item.isExecutable() && item.bytes >= CleanupPolicy::minVisibleBytes)
      checked.insert(item.path);
  return checked;
}

int64_t selectedBytes(const std::vector<CleanupItem>& items, const std::set<std::string>& checked) {
  return sumOfTicked(items, checked, std::nullopt);
}

int64_t selectedImmediateBytes(const std::vector<CleanupItem>& items,
                               const std::set<std::string>& checked) {
  return sumOfTicked(items, checked, true);
}

int64_t selectedHeldBytes(const std::vector<CleanupItem>& items,
                          const std::set<std::string>& checked) {
  return sumOfTicked(items, checked, false);
}

}  // namespace vorlan

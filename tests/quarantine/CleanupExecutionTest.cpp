// Carrying out ticked rows: skipped while running, held and immediate batches, the purge and
// its fall-back to hold, and the events that report it all.
#include <algorithm>
#include <functional>
#include <stdexcept>

#include "cleanup/CleanupExecution.hpp"
#include "quarantine/QuarantineFixture.hpp"

namespace vorlan::test {
namespace {

constexpr int64_t kBig = CleanupPolicy::minVisibleBytes;
const std::string kRunning = "Library/Caches/com.run.app", kRegen = "Library/Caches/com.regen.app",
                  kRegen2 = "Library/Caches/com.regen2.app", kOld = "Library/Application Support/com.old.app",
                  kNoRow = "Docs/norow", kRefused = "Library/Caches/com.refused.app",
                  kSmall = "Library/Caches/com.small.app", kGone = "Library/Caches/com.gone.app";  // kGone: no folder

CleanupItem row(const std::string& path, CleanupVerdict verdict, bool purgeImmediately, int64_t bytes = kBig) {
  CleanupItem item;
  item.name = path.substr(path.rfind('/') + 1), item.path = path, item.bytes = bytes, item.verdict = verdict;
  item.checked = true, item.purgeImmediately = purgeImmediately;
  return item;
}

const std::vector<CleanupItem> kPlan{
    row(kRunning, CleanupVerdict::orphan, false),    row(kRegen, CleanupVerdict::regenerable, true),
    row(kRegen2, CleanupVerdict::regenerable, true), row(kOld, CleanupVerdict::stale, false),
    row(kRefused, CleanupVerdict::orphan, false),    row(kSmall, CleanupVerdict::orphan, false, kBig - 1),
    row(kGone, CleanupVerdict::regenerable, false)};

std::vector<CleanupItem> rowsWhere(const std::function<bool(const CleanupItem&)>& pred) {
  std::vector<CleanupItem> rows;
  std::ranges::copy_if(kPlan, std::back_inserter(rows), pred);
  return rows;
}

TEST_F(QuarantineTest, CleanupCarriesOutTheTicks) {
  struct Case {
    std::string name;
    std::vector<std::string> paths, skipped, held, immediate;
    bool purgeFails = false, refused = false;  // refused: by the quarantine, before anything moves
  };
  const Case cases[] = {
      {"running beats the orphan verdict", {kRunning}, {kRunning}, {}, {}},
      {"a path without a row is held", {kNoRow}, {}, {kNoRow}, {}},
      {"only immediate rows", {kRegen2, kRegen}, {}, {}, {kRegen, kRegen2}},
      {"only held rows", {kOld}, {}, {kOld}, {}},
      {"nothing ticked", {}, {}, {}, {}},
      {"a failed purge falls back to hold", {kRegen}, {}, {}, {kRegen}, true},
      {"all kinds at once", {kOld, kRegen, kRunning, kNoRow, kGone}, {kRunning}, {kNoRow, kOld}, {kRegen}},
      {"a path outside home moves nothing", {kOld, "../x"}, {}, {}, {}, false, true},
  };
  const std::string made[] = {kRunning, kRegen, kRegen2, kOld, kNoRow, kRefused, kSmall};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    for (const auto& path : made) if (!fs::exists(home / path)) writeFile(home / path / "data", path);
    for (const auto& id : quarantine.batches()) quarantine.purge(id);
    const std::set<std::string> checked(c.paths.begin(), c.paths.end());
    BatchPurge purge;
    if (c.purgeFails) purge = [](const Quarantine&, const std::string&) { throw std::runtime_error("busy"); };
    const CleanupOutcome out = executeCleanup(c.paths, kPlan, checked, {"com.run.app"}, quarantine, kNow, {}, purge);

    const bool purged = !c.immediate.empty() && !c.purgeFails;
    std::set<std::string> moved(c.held.begin(), c.held.end());
    moved.insert(c.immediate.begin(), c.immediate.end());
    auto movedRow = [&](const CleanupItem& item) { return moved.contains(item.path); };
    EXPECT_EQ(out.skippedInUse, c.skipped);
    EXPECT_EQ(out.heldBatch ? out.heldBatch->items.size() : 0, c.held.size());
    EXPECT_EQ(out.immediateBatch ? out.immediateBatch->items.size() : 0, c.immediate.size());
    EXPECT_EQ(std::set<std::string>(out.processed.begin(), out.processed.end()), moved);
    for (const auto& path : made) EXPECT_EQ(fs::exists(home / path), !moved.contains(path)) << path;
    EXPECT_EQ(out.immediatePurged, purged);
    EXPECT_EQ(out.freedBytes > 0, purged);
    EXPECT_EQ(out.executeError.value_or("").starts_with("삭제하지 못했습니다: "), c.refused);
    // What is purged is gone for good; what is held, or failed to purge, lies in the quarantine.
    EXPECT_EQ(quarantine.listBatches().size(), size_t(!c.held.empty()) + c.purgeFails);
    EXPECT_EQ(out.lastBatch, c.purgeFails ? out.immediateBatch : out.heldBatch);  // the batch that stays

    std::vector<CleanupEvent> events;
    auto add = [&](std::string name, auto pred) {
      if (auto rows = rowsWhere(pred); !rows.empty()) events.push_back({name, rows});
    };
    if (purged) add("purged_immediate", [&](auto& item) { return std::ranges::count(c.immediate, item.path) > 0; });
    add("deleted", movedRow);
    // Refused: visible rows the plan ticked and the user did not; never the small row.
    add("unchecked", [&](auto& item) { return item.bytes >= kBig && !checked.contains(item.path); });
    EXPECT_EQ(out.events, events);
    // Rows that left home leave the plan and the ticks; the rest stay, a row that failed too.
    EXPECT_EQ(out.items, rowsWhere(std::not_fn(movedRow)));
    for (const auto& path : checked) EXPECT_EQ(out.checked.contains(path), !moved.contains(path)) << path;
  }
}

}  // namespace
}  // namespace vorlan::test

// Carrying out ticked rows: skipped while running, held and immediate batches, the purge and
// its fall-back to hold, and the events that report it all.
#include <gtest/gtest.h>

#include <stdexcept>

#include "cleanup/CleanupExecution.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using test::TempDir;
using test::writeFile;

constexpr int64_t kNow = 1773479702;
constexpr int64_t kBig = CleanupPolicy::minVisibleBytes;

CleanupItem row(std::string path, CleanupVerdict verdict, bool purgeImmediately, int64_t bytes = kBig,
                bool checked = true) {
  CleanupItem item;
  item.path = std::move(path);
  item.name = item.path.substr(item.path.rfind('/') + 1);
  item.verdict = verdict;
  item.purgeImmediately = purgeImmediately;
  item.bytes = bytes;
  item.checked = checked;
  return item;
}

const std::string kRunning = "Library/Caches/com.run.app";
const std::string kRegen = "Library/Caches/com.regen.app";
const std::string kRegen2 = "Library/Caches/com.regen2.app";
const std::string kOld = "Library/Application Support/com.old.app";
const std::string kNoRow = "Documents/norow";
const std::string kRefused = "Library/Caches/com.refused.app";
const std::string kSmall = "Library/Caches/com.small.app";
const std::string kGone = "Library/Caches/com.gone.app";  // has a row, nothing on disk

std::vector<CleanupItem> plan() {
  return {row(kRunning, CleanupVerdict::orphan, false), row(kRegen, CleanupVerdict::regenerable, true),
          row(kRegen2, CleanupVerdict::regenerable, true), row(kOld, CleanupVerdict::stale, false),
          row(kRefused, CleanupVerdict::orphan, false), row(kSmall, CleanupVerdict::orphan, false, kBig - 1),
          row(kGone, CleanupVerdict::regenerable, false)};
}

std::vector<std::string> originals(const std::optional<QuarantineBatch>& batch) {
  std::vector<std::string> out;
  if (batch)
    for (const auto& item : batch->items) out.push_back(item.original);
  return out;
}

std::vector<std::string> pathsOf(const std::vector<CleanupItem>& items) {
  std::vector<std::string> out;
  for (const auto& item : items) out.push_back(item.path);
  return out;
}

TEST(CleanupExecution, CarriesOutTheTicks) {
  enum class Last { none, held, immediate };
  struct Case {
    std::string name;
    std::vector<std::string> paths;
    bool purgeFails;
    std::vector<std::string> skipped, held, immediate;
    bool purged;
    Last last;
    std::vector<std::string> deleted, purgedEvent;  // rows of the two events
  };
  const Case cases[] = {
      {"running beats the orphan verdict", {kRunning}, false, {kRunning}, {}, {}, false, Last::none, {}, {}},
      {"a path without a row is held", {kNoRow}, false, {}, {kNoRow}, {}, false, Last::held, {}, {}},
      {"only immediate rows", {kRegen2, kRegen}, false, {}, {}, {kRegen, kRegen2}, true, Last::none,
       {kRegen, kRegen2}, {kRegen, kRegen2}},
      {"only held rows", {kOld}, false, {}, {kOld}, {}, false, Last::held, {kOld}, {}},
      {"nothing ticked", {}, false, {}, {}, {}, false, Last::none, {}, {}},
      {"a failed purge falls back to hold", {kRegen}, true, {}, {}, {kRegen}, false, Last::immediate, {kRegen}, {}},
      {"all kinds at once", {kOld, kRegen, kRunning, kNoRow, kGone}, false, {kRunning}, {kNoRow, kOld}, {kRegen},
       true, Last::held, {kRegen, kOld}, {kRegen}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const fs::path home = dir / "home";
    for (const auto& path : {kRunning, kRegen, kRegen2, kOld, kNoRow, kRefused, kSmall})
      writeFile(home / path / "data", path);
    const Quarantine quarantine(Quarantine::defaultRoot(home), home);
    const auto items = plan();
    const std::set<std::string> checked(c.paths.begin(), c.paths.end());
    BatchPurge purge;
    if (c.purgeFails) purge = [](const Quarantine&, const std::string&) { throw std::runtime_error("busy"); };

    const CleanupOutcome out =
        executeCleanup(c.paths, items, checked, {"com.run.app"}, quarantine, kNow, {}, purge);

    EXPECT_EQ(out.skippedInUse, c.skipped);
    EXPECT_EQ(originals(out.heldBatch), c.held);
    EXPECT_EQ(originals(out.immediateBatch), c.immediate);
    EXPECT_EQ(out.heldBatch.has_value(), !c.held.empty());
    EXPECT_EQ(out.immediatePurged, c.purged);
    EXPECT_FALSE(out.executeError);
    for (const auto& path : c.skipped) EXPECT_TRUE(fs::exists(home / path / "data")) << path;
    // What is purged is gone for good, and counted; what is held lies in the quarantine.
    int64_t immediateBytes = 0;
    for (const auto& item : out.immediateBatch ? out.immediateBatch->items : std::vector<QuarantineItem>{})
      immediateBytes += item.bytes;
    EXPECT_EQ(out.freedBytes, c.purged ? immediateBytes : 0);
    EXPECT_EQ(out.freedBytes > 0, c.purged);
    for (const auto& path : c.immediate) EXPECT_FALSE(fs::exists(home / path)) << path;
    EXPECT_EQ(quarantine.listBatches().size(), size_t(out.heldBatch ? 1 : 0) + (c.purgeFails ? 1 : 0));
    switch (c.last) {
      case Last::none: EXPECT_FALSE(out.lastBatch); break;
      case Last::held: EXPECT_EQ(out.lastBatch, out.heldBatch); break;
      case Last::immediate: EXPECT_EQ(out.lastBatch, out.immediateBatch); break;
    }

    std::map<std::string, std::vector<std::string>> events;
    for (const auto& e : out.events) events[e.event] = pathsOf(e.items);
    std::vector<std::string> names;
    for (const auto& e : out.events) names.push_back(e.event);
    std::vector<std::string> expectedNames;
    if (!c.purgedEvent.empty()) expectedNames.push_back("purged_immediate");
    if (!c.deleted.empty()) expectedNames.push_back("deleted");
    expectedNames.push_back("unchecked");
    EXPECT_EQ(names, expectedNames);
    EXPECT_EQ(events["deleted"], c.deleted);
    EXPECT_EQ(events["purged_immediate"], c.purgedEvent);
    // Refused: visible, executable, ticked by the plan and not by the user; never the small row.
    std::vector<std::string> refused;
    for (const auto& item : items)
      if (item.bytes >= kBig && !checked.contains(item.path)) refused.push_back(item.path);
    EXPECT_EQ(events["unchecked"], refused);

    // Processed rows leave the plan and the ticks; the rest stay, a row without a folder too.
    std::set<std::string> processed(out.processed.begin(), out.processed.end());
    for (const auto& item : items) EXPECT_EQ(std::count(out.items.begin(), out.items.end(), item), !processed.contains(item.path));
    for (const auto& path : checked) EXPECT_EQ(out.checked.contains(path), !processed.contains(path));
    // A ticked path that could not move keeps its tick.
    EXPECT_EQ(out.checked.contains(kGone), checked.contains(kGone));
  }
}

TEST(CleanupExecution, AFailedMoveIsReportedAndNothingIsDeleted) {
  TempDir dir;
  const fs::path home = dir / "home";
  writeFile(home / kOld / "data", "x");
  const Quarantine quarantine(Quarantine::defaultRoot(home), home);
  const std::vector<std::string> paths{kOld, "../outside"};
  const CleanupOutcome out = executeCleanup(paths, plan(), {paths.begin(), paths.end()}, {}, quarantine, kNow);
  ASSERT_TRUE(out.executeError);
  EXPECT_TRUE(out.executeError->starts_with("삭제하지 못했습니다: ")) << *out.executeError;
  EXPECT_TRUE(out.processed.empty());
  EXPECT_EQ(out.items, plan());
  EXPECT_TRUE(fs::exists(home / kOld / "data"));
  for (const auto& e : out.events) EXPECT_NE(e.event, "deleted");
}

TEST(CleanupExecution, SplitSortsAndLooksOnlyAtTheLastComponent) {
  const auto split = splitForExecution({kOld, "a/com.run.app", "com.run.app/inner", kRegen}, plan(), {"com.run.app"});
  EXPECT_EQ(split.skippedInUse, std::vector<std::string>{"a/com.run.app"});
  EXPECT_EQ(split.immediate, std::vector<std::string>{kRegen});
  EXPECT_EQ(split.held, (std::vector<std::string>{kOld, "com.run.app/inner"}));
}

}  // namespace
}  // namespace vorlan

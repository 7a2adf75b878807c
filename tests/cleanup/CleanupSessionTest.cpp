#include <gtest/gtest.h>

#include <filesystem>

#include "Cancelled.hpp"
#include "cleanup/CleanupSession.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
constexpr int64_t kNow = 1'800'000'000;

std::vector<std::string> pathsOf(const std::vector<CleanupItem>& items) {
  std::vector<std::string> paths;
  for (const auto& item : items) paths.push_back(item.path);
  return paths;
}

TEST(CleanupSession, LoadMergesParentsStablyBySize) {
  test::TempDir home;
  // Equal sizes across parents keep the parents' order, and names order within one.
  test::writeFile(home / ".cache/aa/f", std::string(8192, 'x'));
  test::writeFile(home / "Library/Caches/zz/f", std::string(8192, 'x'));
  test::writeFile(home / "Library/Caches/yy/f", std::string(8192, 'x'));
  test::writeFile(home / ".npm/big/f", std::string(200'000, 'x'));
  test::writeFile(home / ".npm/loose-file", std::string(900'000, 'x'));
  fs::create_directories(home / "Library/Developer/Xcode/DerivedData");  // a parent with no rows
  test::writeFile(home / "Library/Photos/kept/f", "not a cleanup parent");

  const auto plan = loadCleanupPlan(home.path(), {}, {}, {}, kNow);
  EXPECT_EQ(pathsOf(plan.items), (std::vector<std::string>{".npm/big", "Library/Caches/yy",
                                                           "Library/Caches/zz", ".cache/aa"}));
  EXPECT_TRUE(plan.unreadableParents.empty());
}

TEST(CleanupSession, ThreadsChangeNothingButSpeed) {
  test::TempDir home;
  int n = 0;
  for (auto parent : CleanupPolicy::expandedParents)
    for (int child = 0; child < 7; ++child, ++n)
      for (int file = 0; file <= n % 5; ++file)
        test::writeFile(home / std::string(parent) / ("c" + std::to_string(child)) / "sub" /
                            ("f" + std::to_string(file)),
                        std::string(static_cast<size_t>(1000 * (n % 3 + 1)), 'x'));

  std::vector<PlanLoadProgress> seen;
  const auto single = loadCleanupPlan(home.path(), {}, {}, {}, kNow, {}, {}, 1);
  const auto many = loadCleanupPlan(
      home.path(), {}, {}, {}, kNow, {}, [&](const PlanLoadProgress& p) { seen.push_back(p); }, 4);
  EXPECT_EQ(single, many);
  ASSERT_EQ(single.items.size(), 63u);
  ASSERT_EQ(seen.size(), 63u);
  for (size_t i = 0; i < seen.size(); ++i) {
    EXPECT_EQ(seen[i].foldersDone, static_cast<int64_t>(i + 1));
    EXPECT_EQ(seen[i].foldersTotal, 63);
  }
}

TEST(CleanupSession, ExplanationsHeldSurviveAReload) {
  test::TempDir home;
  test::writeFile(home / ".cache/mystery/f", "x");
  const std::map<std::string, DictEntry> explanations{
      {".cache/mystery", DictEntry{"", "수수께끼 도구의 캐시", Grade::unknown, {}, "", false}}};
  const auto plan = loadCleanupPlan(home.path(), {}, {}, {}, kNow, explanations);
  ASSERT_EQ(plan.items.size(), 1u);
  EXPECT_EQ(plan.items[0].what, "수수께끼 도구의 캐시");
}

TEST(CleanupSession, UnreadableParentHasNoRowsAndIsNamed) {
  if (test::runningAsRoot()) GTEST_SKIP() << "root reads every folder";
  test::TempDir home;
  test::writeFile(home / ".gradle/caches/modules-2/f", "x");
  test::writeFile(home / ".bun/install/cache/f", "x");
  fs::permissions(home / ".gradle/caches", fs::perms::none);
  const auto plan = loadCleanupPlan(home.path(), {}, {}, {}, kNow);
  EXPECT_EQ(pathsOf(plan.items), std::vector<std::string>{".bun/install/cache"});
  EXPECT_EQ(plan.unreadableParents, std::vector<std::string>{".gradle/caches"});
}

TEST(CleanupSession, StopRequestCancels) {
  test::TempDir home;
  test::writeFile(home / ".cache/a/f", "x");
  std::stop_source stop;
  stop.request_stop();
  EXPECT_THROW(loadCleanupPlan(home.path(), {}, {}, {}, kNow, {}, {}, 2, stop.get_token()),
               Cancelled);
}

CleanupItem row(std::string path, int64_t bytes, CleanupVerdict verdict, bool purge,
                std::vector<std::string> deletePaths = {}) {
  CleanupItem item;
  item.path = std::move(path);
  item.bytes = bytes;
  item.verdict = verdict;
  item.checked = isCheckedByDefault(verdict);
  item.purgeImmediately = purge;
  item.deletePaths = std::move(deletePaths);
  return item;
}

TEST(CleanupSession, VisibleRowsTicksAndTotals) {
  const int64_t limit = CleanupPolicy::minVisibleBytes;
  const std::vector<CleanupItem> items{
      row("now", 60'000'000, CleanupVerdict::regenerable, true),
      row("held", 70'000'000, CleanupVerdict::stale, false),
      row("small", limit - 1, CleanupVerdict::orphan, false),
      row("edge", limit, CleanupVerdict::orphan, false),
      row("kept", 80'000'000, CleanupVerdict::keep, false),
      row("narrow", 90'000'000, CleanupVerdict::regenerable, true, {"narrow/cache"}),
      row("maybe", 55'000'000, CleanupVerdict::unknown, false),
  };
  EXPECT_EQ(pathsOf(visibleItems(items)),
            (std::vector<std::string>{"now", "held", "edge", "kept", "narrow", "maybe"}));
  EXPECT_EQ(initialChecked(items), (std::set<std::string>{"now", "held", "edge"}));

  struct Case { std::set<std::string> checked; int64_t all, immediate, held; };
  const Case cases[] = {
      {{}, 0, 0, 0},
      {{"now", "held", "edge"}, 60'000'000 + 70'000'000 + limit, 60'000'000, 70'000'000 + limit},
      {{"maybe", "small", "gone"}, 55'000'000 + limit - 1, 0, 55'000'000 + limit - 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(selectedBytes(items, c.checked), c.all);
    EXPECT_EQ(selectedImmediateBytes(items, c.checked), c.immediate);
    EXPECT_EQ(selectedHeldBytes(items, c.checked), c.held);
  }
}

}  // namespace
}  // namespace vorlan

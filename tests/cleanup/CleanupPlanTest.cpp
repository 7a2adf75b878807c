#include <fmt/format.h>
#include <gtest/gtest.h>

#include "cleanup/CleanupCopy.hpp"
#include "cleanup/CleanupPlan.hpp"
#include "cleanup/CleanupSession.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

using V = CleanupVerdict;
namespace C = CleanupCopy;
constexpr int64_t kNow = 1'800'000'000, kDay = 86'400;

DictEntry entryWith(std::string what, Grade grade = Grade::unknown, std::string risk = "",
                    bool regenerates = false, std::vector<std::string> deletePaths = {}) {
  return DictEntry{"App", std::move(what), grade, std::move(deletePaths), std::move(risk), regenerates};
}

CleanupItem row(std::string path, int64_t bytes, V verdict, std::vector<std::string> deletePaths = {},
                bool purge = false, std::string_view consequence = C::unknown) {
  CleanupItem item;
  item.path = std::move(path);
  item.bytes = bytes;
  item.verdict = verdict;
  item.checked = isCheckedByDefault(verdict);
  item.reason = "아직 무엇인지 모릅니다";
  item.deletePaths = std::move(deletePaths);
  item.consequence = consequence;
  item.purgeImmediately = purge;
  return item;
}

// Every row of the verdict table, in order: the first test that holds decides.
TEST(CleanupPlan, VerdictTable) {
  const std::set<std::string> installed{"com.owned.app"}, running{"com.busy.app"};
  const int64_t fresh = kNow - kDay, old = kNow - 200 * kDay;
  const auto none = std::nullopt;
  const InheritedKnowledge safe{Grade::safe, "규칙 캐시", ""}, review{Grade::review, "규칙 검토", "힌트"},
      reviewNoHint{Grade::review, "검토", ""}, never{Grade::never, "규칙 보존", ""},
      unknownRule{Grade::unknown, "모름", ""};
  const std::string_view check = "확인이 필요합니다", regen = "지워도 다시 만들어집니다",
                         notKnown = "아직 무엇인지 모릅니다", age200 = "200일째 바뀌지 않았습니다";
  const struct {
    std::string name; int64_t lastChanged; std::optional<DictEntry> entry;
    std::optional<InheritedKnowledge> inherited; V verdict; std::string_view reason; bool purge;
    std::string_view consequence, what;
  } cases[] = {
      // A risk decides first, even over a never grade and a running owner.
      {"com.busy.app", fresh, entryWith("폴더", Grade::never, "위험"), safe, V::needsReview, check, false,
       "위험", "폴더"},
      {"Foo", old, entryWith("사진", Grade::never), safe, V::keep, "사진", false, C::keep, "사진"},
      // Running beats orphan and age, through a group prefix too.
      {"group.com.busy.app", old, none, safe, V::inUse, "지금 실행 중입니다", false, C::inUse, "규칙 캐시"},
      {"com.gone.tool", old, entryWith("캐시", Grade::safe, "", true, {"com.gone.tool/x"}), none, V::orphan,
       "주인을 찾지 못했습니다", false, C::orphan, "캐시"},
      {"com.apple.Safari", fresh, none, none, V::unknown, notKnown, false, C::unknown, ""},
      {"com.owned.other", fresh, none, none, V::unknown, notKnown, false, C::unknown, ""},
      // Stale needs more than ninety whole days, a date, and no date after now.
      {"Foo", kNow - 91 * kDay, none, none, V::stale, "91일째 바뀌지 않았습니다", false, C::staleData, ""},
      {"Foo", kNow - 91 * kDay + 3600, none, none, V::unknown, notKnown, false, C::unknown, ""},
      {"Foo", 0, none, none, V::unknown, notKnown, false, C::unknown, ""},
      {"Foo", kNow + 400 * kDay, none, none, V::unknown, notKnown, false, C::unknown, ""},
      // Age alone never purges at once, whatever else is known.
      {"Foo", old, entryWith("캐시", Grade::safe, "", true), none, V::stale, age200, false,
       C::regenerableHeld, "캐시"},
      {"Foo", old, none, safe, V::stale, age200, false, C::regenerableHeld, "규칙 캐시"},
      {"com.owned.app.cache", old, none, none, V::stale, age200, false, C::staleData, ""},
      {"Foo", fresh, entryWith("캐시", Grade::safe, "", true), review, V::regenerable, regen, true,
       C::regenerable, "캐시"},
      {"com.owned.app.helper", fresh, none, review, V::regenerable, regen, true, C::regenerable, "규칙 검토"},
      {"Foo", fresh, none, safe, V::regenerable, regen, false, C::regenerableHeld, "규칙 캐시"},
      {"Foo", fresh, none, review, V::needsReview, check, false, "힌트", "규칙 검토"},
      {"Foo", fresh, entryWith(""), reviewNoHint, V::needsReview, check, false, C::reviewDefault, "검토"},
      {"Foo", fresh, none, never, V::keep, "규칙 보존", false, C::keep, "규칙 보존"},
      {"Foo.bar", fresh, none, unknownRule, V::unknown, notKnown, false, C::unknown, "모름"},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    const std::string path = "Library/Caches/" + c.name;
    std::map<std::string, DictEntry> entries;
    if (c.entry) entries[path] = *c.entry;
    const auto rows = buildCleanupPlan(
        "Library/Caches", {{c.name, {123, c.lastChanged, 4}}}, KnowledgeDictionary(entries), installed,
        running, kNow, [&](std::string_view asked) { return asked == path ? c.inherited : none; });
    ASSERT_EQ(rows.size(), 1u) << "row " << i;
    const CleanupItem& r = rows[0];
    EXPECT_EQ(std::tuple(rawValue(r.verdict), r.checked, r.reason, r.purgeImmediately, r.consequence, r.what),
              std::tuple(rawValue(c.verdict), isCheckedByDefault(c.verdict), c.reason, c.purge,
                         c.consequence, c.what)) << "row " << i;
    EXPECT_EQ(std::tuple(r.path, r.bytes, r.lastChangedEpoch, r.fileCount, r.deletePaths),
              std::tuple(path, 123, c.lastChanged, 4, c.entry.value_or(DictEntry{}).deletePaths))
        << "row " << i;
  }
}

// Explanations from outside may change words, never what will be done.
TEST(CleanupCopy, ExplanationsChangeWordsOnly) {
  const DictEntry loud{"Tool", "도구 캐시", Grade::never, {"a/b"}, "새 위험", true},
      silent{"Tool", "", Grade::safe, {}, "위험", true}, plain{"", "설명", Grade::unknown, {}, "", false};
  const std::string unknownText(C::unknown);
  const std::tuple<CleanupItem, DictEntry, std::optional<std::string>> cases[] = {
      // row, explanation, new consequence (none: the row stays as it is)
      {row("x", 1, V::unknown), loud, "새 위험 · " + unknownText},
      {row("x", 1, V::unknown), plain, unknownText},
      {row("x", 1, V::unknown), silent, std::nullopt},
      {row("x", 1, V::needsReview, {}, false, "옛 위험"), loud, "새 위험 · 옛 위험"},
      {row("x", 1, V::regenerable, {}, true), loud, "새 위험 · " + unknownText},
      {row("x", 1, V::orphan, {"p"}), plain, unknownText},
      {row("x", 1, V::inUse), loud, std::nullopt},
      {row("x", 1, V::keep), loud, std::nullopt},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& [before, entry, consequence] = cases[i];
    const CleanupItem after = explained(before, entry);
    CleanupItem expected = before;
    if (consequence) {
      expected.what = entry.what;
      expected.reason = C::explainedReason;
      expected.consequence = *consequence;
    }
    EXPECT_EQ(std::tuple(after.what, after.reason, after.consequence),
              std::tuple(expected.what, expected.reason, expected.consequence)) << "case " << i;
    EXPECT_EQ(after, expected) << "case " << i << ": more than words changed";
  }
}

TEST(CleanupSession, ThreadsChangeNothingButSpeed) {
  test::TempDir home;
  int n = 0;
  for (auto parent : CleanupPolicy::expandedParents)
    for (int child = 0; child < 7; ++child, ++n)
      for (int file = 0; file <= n % 5; ++file)
        test::writeFile(home / fmt::format("{}/c{}/sub/f{}", parent, child, file),
                        std::string(static_cast<size_t>(1000 * (n % 3 + 1)), 'x'));
  std::vector<PlanLoadProgress> seen;
  const auto single = loadCleanupPlan(home.path(), {}, {}, {}, kNow, {}, {}, 1);
  const auto many = loadCleanupPlan(
      home.path(), {}, {}, {}, kNow, {}, [&](const PlanLoadProgress& p) { seen.push_back(p); }, 4);
  EXPECT_EQ(single, many);
  ASSERT_EQ(single.items.size(), 63u);
  for (size_t i = 0; i < seen.size(); ++i)  // one call at a time, counting up
    EXPECT_EQ(std::pair(seen[i].foldersDone, seen[i].foldersTotal), std::pair(int64_t(i) + 1, int64_t{63}));
  EXPECT_EQ(seen.size(), 63u);
  // Each report carries its folder's finished row, so a screen can show rows as they come.
  std::vector<CleanupItem> reported, planned = many.items;
  for (const auto& p : seen) reported.push_back(p.row);
  auto byPath = [](const CleanupItem& a, const CleanupItem& b) { return a.path < b.path; };
  std::sort(reported.begin(), reported.end(), byPath);
  std::sort(planned.begin(), planned.end(), byPath);
  EXPECT_EQ(reported, planned);
}

TEST(CleanupSession, UnreadableParentHasNoRowsAndIsNamed) {
  if (test::runningAsRoot()) GTEST_SKIP() << "root reads every folder";
  test::TempDir home;
  test::writeFile(home / ".gradle/caches/modules-2/f", "x");
  test::writeFile(home / ".bun/install/cache/f", "x");
  std::filesystem::permissions(home / ".gradle/caches", std::filesystem::perms::none);
  const auto plan = loadCleanupPlan(home.path(), {}, {}, {}, kNow);
  ASSERT_EQ(plan.items.size(), 1u);
  EXPECT_EQ(plan.items[0].path, ".bun/install/cache");
  EXPECT_EQ(plan.unreadableParents, std::vector<std::string>{".gradle/caches"});
}

// Only rows the plan ticks, that can be carried out and that show start ticked.
TEST(CleanupSession, DefaultTicks) {
  const int64_t limit = CleanupPolicy::minVisibleBytes;
  const std::vector<CleanupItem> items{
      row("now", 60'000'000, V::regenerable), row("held", 70'000'000, V::stale),
      row("small", limit - 1, V::orphan),     row("edge", limit, V::orphan),
      row("kept", 80'000'000, V::keep),       row("narrow", 90'000'000, V::regenerable, {"narrow/x"}),
      row("maybe", 55'000'000, V::unknown), row("busy", 55'000'000, V::inUse), row("ask", 55'000'000, V::needsReview),
  };
  EXPECT_EQ(visibleItems(items).size(), items.size() - 1) << "only the row below the limit hides";
  EXPECT_EQ(initialChecked(items), (std::set<std::string>{"now", "held", "edge"}));
}

}  // namespace
}  // namespace vorlan

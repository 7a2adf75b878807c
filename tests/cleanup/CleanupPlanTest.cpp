#include <gtest/gtest.h>

#include "cleanup/CleanupCopy.hpp"
#include "cleanup/CleanupPlan.hpp"
#include "scan/RuleTable.hpp"

namespace vorlan {
namespace {

constexpr int64_t kNow = 1'800'000'000;
constexpr int64_t kDay = 86'400;

DictEntry entryWith(std::string what, Grade grade = Grade::unknown, std::string risk = "",
                    bool regenerates = false, std::vector<std::string> deletePaths = {}) {
  return DictEntry{"App", std::move(what), grade, std::move(deletePaths), std::move(risk), regenerates};
}

struct VerdictCase {
  const char* label;
  std::string name;
  int64_t lastChanged;
  std::optional<DictEntry> entry;
  std::optional<InheritedKnowledge> inherited;
  CleanupVerdict verdict;
  std::string reason;
  bool purgeImmediately;
  std::string consequence;
  std::string what;
};

// Every row of the verdict table, in order, and the words each one brings.
TEST(CleanupPlan, VerdictTable) {
  const std::set<std::string> installed{"com.owned.app"};
  const std::set<std::string> running{"com.busy.app", "com.owned.app"};
  const int64_t fresh = kNow - kDay;
  const int64_t old = kNow - 200 * kDay;
  const InheritedKnowledge safe{Grade::safe, "규칙 캐시", "다시 생김"};
  const InheritedKnowledge review{Grade::review, "규칙 검토", "규칙의 힌트"};
  const InheritedKnowledge reviewNoHint{Grade::review, "규칙 검토", ""};
  const InheritedKnowledge never{Grade::never, "규칙 보존", ""};
  const InheritedKnowledge unknownRule{Grade::unknown, "규칙 모름", ""};
  const std::string review_ = std::string(CleanupCopy::reviewReason);
  const std::string regen = "지워도 다시 만들어집니다";

  const VerdictCase cases[] = {
      // 1: a risk decides before anything else, even a never grade or a running owner.
      {"risk", "Foo", fresh, entryWith("폴더", Grade::safe, "설정이 사라집니다"), safe,
       CleanupVerdict::needsReview, review_, false, "설정이 사라집니다", "폴더"},
      {"risk beats never", "Foo", fresh, entryWith("폴더", Grade::never, "위험"), std::nullopt,
       CleanupVerdict::needsReview, review_, false, "위험", "폴더"},
      {"risk beats running", "com.busy.app", fresh, entryWith("폴더", Grade::unknown, "위험"),
       std::nullopt, CleanupVerdict::needsReview, review_, false, "위험", "폴더"},
      {"risk beats regenerates", "Foo", fresh, entryWith("폴더", Grade::safe, "위험", true),
       std::nullopt, CleanupVerdict::needsReview, review_, false, "위험", "폴더"},
      // 2
      {"never entry", "Foo", old, entryWith("사진 보관함", Grade::never), safe,
       CleanupVerdict::keep, "사진 보관함", false, std::string(CleanupCopy::keep), "사진 보관함"},
      // 3: running beats orphan and age.
      {"running", "com.busy.app", old, std::nullopt, std::nullopt, CleanupVerdict::inUse,
       "지금 실행 중입니다", false, std::string(CleanupCopy::inUse), ""},
      {"running through a group prefix", "group.com.busy.app", fresh, std::nullopt, safe,
       CleanupVerdict::inUse, "지금 실행 중입니다", false, std::string(CleanupCopy::inUse), "규칙 캐시"},
      {"running and owned", "com.owned.app", fresh, entryWith("앱", Grade::safe, "", true),
       std::nullopt, CleanupVerdict::inUse, "지금 실행 중입니다", false,
       std::string(CleanupCopy::inUse), "앱"},
      // 4: orphan comes before age and before what regenerates.
      {"orphan", "com.gone.tool", old, std::nullopt, safe, CleanupVerdict::orphan,
       "주인을 찾지 못했습니다", false, std::string(CleanupCopy::orphan), "규칙 캐시"},
      {"orphan despite regenerates", "com.gone.tool", fresh, entryWith("캐시", Grade::safe, "", true),
       std::nullopt, CleanupVerdict::orphan, "주인을 찾지 못했습니다", false,
       std::string(CleanupCopy::orphan), "캐시"},
      {"first party is no orphan", "com.apple.Safari", fresh, std::nullopt, std::nullopt,
       CleanupVerdict::unknown, "아직 무엇인지 모릅니다", false, std::string(CleanupCopy::unknown), ""},
      {"vendor installed is no orphan", "com.owned.other", fresh, std::nullopt, std::nullopt,
       CleanupVerdict::unknown, "아직 무엇인지 모릅니다", false, std::string(CleanupCopy::unknown), ""},
      // 5: age, in whole days beyond ninety.
      {"stale", "Foo", kNow - 91 * kDay, std::nullopt, std::nullopt, CleanupVerdict::stale,
       "91일째 바뀌지 않았습니다", false, std::string(CleanupCopy::staleData), ""},
      {"stale long ago", "Foo.bar", old - 12 * 3600, std::nullopt, std::nullopt, CleanupVerdict::stale,
       "200일째 바뀌지 않았습니다", false, std::string(CleanupCopy::staleData), ""},
      {"90 days 23 hours is fresh", "Foo", kNow - 91 * kDay + 3600, std::nullopt, std::nullopt,
       CleanupVerdict::unknown, "아직 무엇인지 모릅니다", false, std::string(CleanupCopy::unknown), ""},
      {"stale regenerating entry is held", "Foo", old, entryWith("캐시", Grade::safe, "", true),
       std::nullopt, CleanupVerdict::stale, "200일째 바뀌지 않았습니다", false,
       std::string(CleanupCopy::regenerableHeld), "캐시"},
      {"stale under a safe rule", "Foo", old, std::nullopt, safe, CleanupVerdict::stale,
       "200일째 바뀌지 않았습니다", false, std::string(CleanupCopy::regenerableHeld), "규칙 캐시"},
      {"stale owned folder", "com.owned.app.cache", old, std::nullopt, std::nullopt,
       CleanupVerdict::stale, "200일째 바뀌지 않았습니다", false, std::string(CleanupCopy::staleData), ""},
      {"no files, no date", "Foo", 0, std::nullopt, std::nullopt, CleanupVerdict::unknown,
       "아직 무엇인지 모릅니다", false, std::string(CleanupCopy::unknown), ""},
      {"future date", "Foo", kNow + 400 * kDay, std::nullopt, std::nullopt, CleanupVerdict::unknown,
       "아직 무엇인지 모릅니다", false, std::string(CleanupCopy::unknown), ""},
      // 6, 7: what comes back goes at once.
      {"regenerates entry", "Foo", fresh, entryWith("캐시", Grade::safe, "", true), review,
       CleanupVerdict::regenerable, regen, true, std::string(CleanupCopy::regenerable), "캐시"},
      {"owned by installed app", "com.owned.app.helper", fresh, std::nullopt, review,
       CleanupVerdict::regenerable, regen, true, std::string(CleanupCopy::regenerable), "규칙 검토"},
      // 8-11: the rule table's grade.
      {"safe rule", "Foo", fresh, std::nullopt, safe, CleanupVerdict::regenerable, regen, false,
       std::string(CleanupCopy::regenerableHeld), "규칙 캐시"},
      {"review rule", "Foo", fresh, std::nullopt, review, CleanupVerdict::needsReview, review_, false,
       "규칙의 힌트", "규칙 검토"},
      {"review rule without hint", "Foo", fresh, entryWith(""), reviewNoHint,
       CleanupVerdict::needsReview, review_, false, std::string(CleanupCopy::reviewDefault), "규칙 검토"},
      {"never rule", "Foo", fresh, std::nullopt, never, CleanupVerdict::keep, "규칙 보존", false,
       std::string(CleanupCopy::keep), "규칙 보존"},
      {"unknown rule", "Foo", fresh, std::nullopt, unknownRule, CleanupVerdict::unknown,
       "아직 무엇인지 모릅니다", false, std::string(CleanupCopy::unknown), "규칙 모름"},
      {"nothing known", "Foo.bar", fresh, std::nullopt, std::nullopt, CleanupVerdict::unknown,
       "아직 무엇인지 모릅니다", false, std::string(CleanupCopy::unknown), ""},
  };

  for (const auto& c : cases) {
    const std::string path = "Library/Caches/" + c.name;
    KnowledgeDictionary dictionary;
    if (c.entry) dictionary = KnowledgeDictionary({{path, *c.entry}});
    auto inherit = [&](std::string_view asked) -> std::optional<InheritedKnowledge> {
      EXPECT_EQ(asked, path);
      return c.inherited;
    };
    const std::map<std::string, UsageStat> children{{c.name, {123, c.lastChanged, 4}}};
    const auto rows =
        buildCleanupPlan("Library/Caches", children, dictionary, installed, running, kNow, inherit);
    ASSERT_EQ(rows.size(), 1u) << c.label;
    const CleanupItem& row = rows[0];
    EXPECT_EQ(row.verdict, c.verdict) << c.label;
    EXPECT_EQ(row.reason, c.reason) << c.label;
    EXPECT_EQ(row.purgeImmediately, c.purgeImmediately) << c.label;
    EXPECT_EQ(row.consequence, c.consequence) << c.label;
    EXPECT_EQ(row.what, c.what) << c.label;
    EXPECT_EQ(row.checked, isCheckedByDefault(c.verdict)) << c.label;
    EXPECT_EQ(row.path, path) << c.label;
    EXPECT_EQ(row.name, c.name) << c.label;
    EXPECT_EQ((std::tuple{row.bytes, row.lastChangedEpoch, row.fileCount}),
              (std::tuple{int64_t{123}, c.lastChanged, int64_t{4}}))
        << c.label;
  }
}

TEST(CleanupPlan, DeletePathsMakeARowExplainOnly) {
  const std::string path = ".cache/tool";
  KnowledgeDictionary dictionary(
      {{path, entryWith("도구 캐시", Grade::safe, "", true, {".cache/tool/downloads"})}});
  const auto rows = buildCleanupPlan(".cache", {{"tool", {1, kNow, 1}}}, dictionary, {}, {}, kNow, {});
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].verdict, CleanupVerdict::regenerable);
  EXPECT_EQ(rows[0].deletePaths, std::vector<std::string>{".cache/tool/downloads"});
  EXPECT_FALSE(rows[0].isExecutable());

}

TEST(CleanupPlan, RowsLargestFirstThenByNameAndTotals) {
  const std::map<std::string, UsageStat> children{
      {"b", {500, kNow - 200 * kDay, 1}},  // stale
      {"a", {500, 0, 0}},
      {"com.gone.x", {900, kNow, 1}},      // orphan
      {"c", {70, kNow, 1}},
      {"com.gone.y", {500, kNow, 1}},      // orphan
  };
  const auto rows = buildCleanupPlan(".npm", children, {}, {}, {}, kNow, {});
  std::vector<std::string> order;
  for (const auto& row : rows) order.push_back(row.path);
  EXPECT_EQ(order, (std::vector<std::string>{".npm/com.gone.x", ".npm/a", ".npm/b",
                                             ".npm/com.gone.y", ".npm/c"}));
  EXPECT_EQ(cleanupTotals(rows), (CleanupTotals{500, 1400}));
  EXPECT_TRUE(buildCleanupPlan(".npm", {}, {}, {}, {}, kNow, {}).empty());
}

TEST(CleanupPlan, InheritsFromTheClosestHomeRule) {
  auto gradeOf = [](std::string_view path) {
    auto known = inheritedKnowledge(path);
    return known ? std::optional(known->grade) : std::nullopt;
  };
  // ".npm" asks for review, its "_cacache" below it is safe; borders are at "/" only.
  EXPECT_EQ(gradeOf(".npm/_cacache/index-v5"), Grade::safe);
  EXPECT_EQ(gradeOf(".npm/_cacachex"), Grade::review);
  EXPECT_EQ(gradeOf(".npm/_logs"), Grade::review);
  EXPECT_EQ(gradeOf(".npmrc"), std::nullopt);
  EXPECT_EQ(gradeOf("Library/Caches/com.foo"), Grade::safe);
  // Absolute rules are outside the home folder and never inherited.
  for (const Rule& rule : rules())
    if (rule.subpath.starts_with('/')) {
      EXPECT_EQ(inheritedKnowledge(rule.subpath + "/x"), std::nullopt) << rule.subpath;
    }
  const auto cache = inheritedKnowledge(".cache/pip");
  ASSERT_TRUE(cache);
  const auto rule = std::find_if(rules().begin(), rules().end(),
                                 [](const Rule& r) { return r.subpath == ".cache"; });
  ASSERT_NE(rule, rules().end());
  EXPECT_EQ(*cache, (InheritedKnowledge{rule->grade, rule->note, rule->hint}));
}

// Explanations from outside may change words, never what will be done.
TEST(CleanupCopy, ExplanationsChangeWordsOnly) {
  CleanupItem base;
  base.name = "x.tool";
  base.path = ".cache/x.tool";
  base.bytes = 100;
  base.reason = "아직 무엇인지 모릅니다";
  base.consequence = std::string(CleanupCopy::unknown);

  auto with = [&](CleanupVerdict verdict, bool checked, bool purge, std::vector<std::string> dp,
                  std::string consequence = std::string(CleanupCopy::unknown)) {
    CleanupItem item = base;
    item.verdict = verdict;
    item.checked = checked;
    item.purgeImmediately = purge;
    item.deletePaths = std::move(dp);
    item.consequence = std::move(consequence);
    return item;
  };
  const DictEntry loud{"Tool", "도구 캐시", Grade::never, {"a/b"}, "새 위험", true};
  const DictEntry silent{"Tool", "", Grade::safe, {}, "위험", true};
  const DictEntry plain{"", "설명", Grade::unknown, {}, "", false};

  struct Case {
    const char* label;
    CleanupItem item;
    DictEntry entry;
    bool changes;
    std::string consequence;
  };
  const Case cases[] = {
      {"unknown explained", with(CleanupVerdict::unknown, false, false, {}), loud, true,
       "새 위험 · " + std::string(CleanupCopy::unknown)},
      {"no risk keeps consequence", with(CleanupVerdict::unknown, false, false, {}), plain, true,
       std::string(CleanupCopy::unknown)},
      {"empty what changes nothing", with(CleanupVerdict::unknown, false, false, {}), silent, false, ""},
      {"review risk before old risk", with(CleanupVerdict::needsReview, false, false, {}, "옛 위험"),
       loud, true, "새 위험 · 옛 위험"},
      {"regenerable stays immediate", with(CleanupVerdict::regenerable, true, true, {}), loud, true,
       "새 위험 · " + std::string(CleanupCopy::unknown)},
      {"deletePaths stay", with(CleanupVerdict::orphan, true, false, {"p"}), plain, true,
       std::string(CleanupCopy::unknown)},
      {"in use untouched", with(CleanupVerdict::inUse, false, false, {}), loud, false, ""},
      {"keep untouched", with(CleanupVerdict::keep, false, false, {}), loud, false, ""},
  };
  for (const auto& c : cases) {
    const CleanupItem result = explained(c.item, c.entry);
    if (!c.changes) {
      EXPECT_EQ(result, c.item) << c.label;
      continue;
    }
    EXPECT_EQ(result.what, c.entry.what) << c.label;
    EXPECT_EQ(result.reason, CleanupCopy::explainedReason) << c.label;
    EXPECT_EQ(result.consequence, c.consequence) << c.label;
    CleanupItem wordsRestored = result;
    wordsRestored.what = c.item.what;
    wordsRestored.reason = c.item.reason;
    wordsRestored.consequence = c.item.consequence;
    EXPECT_EQ(wordsRestored, c.item) << c.label << ": more than words changed";
  }
}

TEST(CleanupCopy, ApplyExplanationsByPathInOrder) {
  std::vector<CleanupItem> items(3);
  items[0].path = "a";
  items[1].path = "b";
  items[2].path = "c";
  const std::map<std::string, DictEntry> explanations{{"b", entryWith("비")}, {"z", entryWith("지")}};
  const auto result = applyExplanations(items, explanations);
  ASSERT_EQ(result.size(), 3u);
  EXPECT_EQ(result[0], items[0]);
  EXPECT_EQ(result[1].path, "b");
  EXPECT_EQ(result[1].what, "비");
  EXPECT_EQ(result[2], items[2]);
  EXPECT_TRUE(applyExplanations({}, explanations).empty());
}

}  // namespace
}  // namespace vorlan

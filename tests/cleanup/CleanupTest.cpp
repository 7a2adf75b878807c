// The cleanup plan: who owns a folder, what the dictionary knows of it, the verdict and the
// ticks it starts with.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <algorithm>
#include <regex>

#include "cleanup/AppOwnership.hpp"
#include "cleanup/CleanupCopy.hpp"
#include "cleanup/CleanupPlan.hpp"
#include "cleanup/CleanupSession.hpp"
#include "cleanup/KnowledgeDictionary.hpp"
#include "scan/Classification.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

using V = CleanupVerdict;
using Strings = std::vector<std::string>;
namespace C = CleanupCopy;
constexpr int64_t kNow = 1'800'000'000, kDay = 86'400;

TEST(AppOwnership, CandidatesPeelGroupAndTeamPrefixes) {
  const std::tuple<const char*, bool, Strings> cases[] = {
      {"com.foo", false, {"com.foo"}}, {"com_x.foo.bar", false, {"com_x.foo.bar"}},
      {"group.com.foo", true, {"group.com.foo", "com.foo"}},
      {"groups.com.foo.bar", true, {"groups.com.foo.bar", "com.foo.bar"}},
      {"ABCDE12345.com.foo.bar", true, {"ABCDE12345.com.foo.bar", "com.foo.bar"}},
      {"group.ABCDE12345.com.foo.bar", true,
       {"group.ABCDE12345.com.foo.bar", "ABCDE12345.com.foo.bar", "com.foo.bar"}},
      // Lower case or another prefix word stops the peeling.
      {"ABCDEFGHIj.com.foo.bar", true, {"ABCDEFGHIj.com.foo.bar"}}, {"Group.com.foo.bar", true, {"Group.com.foo.bar"}},
      {"group.group.group.group.com.foo", true,
       {"group.group.group.group.com.foo", "group.group.group.com.foo", "group.group.com.foo", "group.com.foo"}},
  };
  for (const auto& [name, reverseDNS, candidates] : cases) {
    EXPECT_EQ(isReverseDNS(name), reverseDNS) << name;
    EXPECT_EQ(candidateIdentities(name), candidates) << name;
  }
}

TEST(AppOwnership, FirstPartyRelatedOwnedRunning) {
  const std::set<std::string> installed{"com.foo.app", "org.single"}, running{"com.foo.app", "firefox"};
  const std::tuple<const char*, bool, bool, bool, bool> cases[] = {
      // name, first party, related, owned, running
      {"group.com.apple.notes", true, false, false, false}, {"com.apples.tool", false, false, false, false},
      {"com.foo.application", false, true, false, false},   {"group.com.foo.app", false, true, true, true},
      {"ABCDE12345.com.foo.app.helper", false, true, true, false}, {"org.single.thing", false, true, true, false},
      {"org.singles.x", false, false, false, false},
      {"firefox", false, false, false, false},  // plain names are never in use
  };
  for (const auto& [name, firstParty, related, owned, isRunning] : cases)
    EXPECT_EQ(std::tuple(isFirstParty(name), isRelatedToInstalledApp(name, installed),
                         isOwnedByInstalledApp(name, installed), isCurrentlyRunning(name, running)),
              std::tuple(firstParty, related, owned, isRunning)) << name;
}

// A hand-written XML Info.plist is read end to end by the plan command's tests (their owned app).
TEST(AppOwnership, InstalledIdentitiesFromBinaryInfoPlistsAndNothingFromBrokenOnes) {
  test::TempDir home;
  const auto apps = home / "Applications";
  auto write = [&](const char* bundle, plist_t identifier) {
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "CFBundleIdentifier", identifier);
    char* data = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &data, &length);
    test::writeFile(apps / bundle / "Contents/Info.plist", std::string(data, length));
    plist_to_bin_free(data);
    plist_free(root);
  };
  write("Binary.app", plist_new_string("com.example.bin"));
  write("Empty.app", plist_new_string(""));
  write("NumberId.app", plist_new_uint(7));
  test::writeFile(apps / "Garbage.app/Contents/Info.plist", "<plist><dict><key>Half");
  test::writeFile(apps / "Truncated.app/Contents/Info.plist", "bplist00\x01\x02");
  // A NUL byte inside the string once aborted the whole program in libplist's own copy.
  test::writeFile(apps / "Nul.app/Contents/Info.plist",
                  std::string("<plist><dict><key>CFBundleIdentifier</key><string>com.a") + '\0' +
                      "b</string></dict></plist>");
  EXPECT_EQ(installedBundleIDs({apps, home / "missing"}), std::set<std::string>{"com.example.bin"});
}

TEST(KnowledgeDictionary, AnyMalformedPartLosesTheWholeDocument) {
  for (const char* json : {"{", "[]", R"({"rows": {}})", R"({"entries": []})", R"({"entries": {}} x)",
                           "{\"entries\": {\"\xff\": {}}}"})
    EXPECT_EQ(KnowledgeDictionary::decodeEntries(json), std::nullopt) << json;
  // One bad row next to a good one.
  for (const char* row : {R"("x")", R"({"regenerates": "true"})", R"({"deletePaths": ["a", 2]})",
                          R"({"what": 3})", R"({"grade": true})"})
    EXPECT_EQ(KnowledgeDictionary::decodeEntries(std::string(R"({"entries": {"ok": {}, "bad": )") + row + "}}"),
              std::nullopt) << row;
}

TEST(KnowledgeDictionary, RowsTakeDefaultsAndGradesAreExact) {
  auto entries = KnowledgeDictionary::decodeEntries(R"({"version": 3, "entries": {
      "a/empty": {},
      "a/full": {"app": "Foo", "what": "캐시", "grade": "SAFE", "deletePaths": ["a/full/x"],
                 "risk": "위험", "regenerates": true, "extra": [1]},
      "a/never": {"grade": "NEVER"}, "a/lower": {"grade": "never"}, "a/odd": {"grade": "NEVER "},
      "a/nulls": {"what": null, "regenerates": null, "deletePaths": null},
      "~/a/kept/": {}}})");
  const DictEntry blank{}, never{"", "", Grade::never, {}, "", false};
  // Grades are case-exact; keys stand as written.
  EXPECT_EQ(entries, (std::map<std::string, DictEntry>{
                         {"a/empty", blank}, {"a/nulls", blank}, {"a/never", never}, {"a/lower", blank},
                         {"a/odd", blank}, {"~/a/kept/", blank},
                         {"a/full", {"Foo", "캐시", Grade::safe, {"a/full/x"}, "위험", true}}}));
}

TEST(KnowledgeDictionary, LongestKeyAtSlashBorders) {
  std::map<std::string, DictEntry> entries;
  for (const auto& [key, what] : std::map<std::string, std::string>{
           {"Library/Caches", "caches"}, {"Library/Caches/com.foo", "foo"},
           {"Library/Application Support/카카오톡", "kakao"},
           {"Library/Application Support/카", "short korean"}, {"Library/Logs/", "trailing slash"}})
    entries[key] = DictEntry{"", what, Grade::unknown, {}, "", false};
  const KnowledgeDictionary dictionary(entries);
  const std::pair<const char*, std::optional<std::string>> cases[] = {
      {"Library/Caches/com.foo/x", "foo"}, {"Library/Caches/com.foobar", "caches"}, {"Library/Caches", "caches"},
      {"Library/Cachesfoo", std::nullopt}, {"Library/Application Support/카카오", std::nullopt},
      {"Library/Application Support/카/x", "short korean"}, {"Library/Logs/x", std::nullopt},
      {"/Library/Caches/com.foo", std::nullopt},
  };
  for (const auto& [path, what] : cases) {
    auto found = dictionary.lookup(path);
    EXPECT_EQ(found ? std::optional(found->what) : std::nullopt, what) << path;
  }
}

TEST(KnowledgeDictionary, ShippedFileDecodesAndStaysImpersonal) {
  const auto shipped = KnowledgeDictionary::bundled();
  ASSERT_FALSE(shipped.entries.empty()) << "dictionary.json is empty or does not decode";
  // Keys travel in statistics: nothing in them may point at one person or one machine.
  const std::regex personal(
      "[@~]|//|/\\.\\./|/$|/Users/|/home/|/Documents/|/Desktop/|[0-9A-Fa-f]{16,}|[0-9]{13,}|"
      "[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}");
  for (const auto& [key, entry] : shipped.entries) {
    // The plan looks up the direct children of its parents only; a deeper key is never read.
    EXPECT_TRUE(std::any_of(CleanupPolicy::expandedParents.begin(), CleanupPolicy::expandedParents.end(),
                            [&key](std::string_view parent) {
                              return key != parent && isAtOrUnder(key, parent) &&
                                     key.find('/', parent.size() + 1) == std::string::npos;
                            })) << key;
    EXPECT_FALSE(std::regex_search(key, personal)) << key;
    // The plan acts on risk and regenerates, not on the grade, so they must tell the same story.
    EXPECT_NE(entry.grade, Grade::unknown) << key;
    const bool agrees = entry.grade == Grade::safe     ? entry.regenerates && entry.risk.empty()
                        : entry.grade == Grade::review ? !entry.risk.empty()
                                                       : entry.risk.empty();
    EXPECT_TRUE(agrees) << key;
    // Shown to the user as is: Korean, so at least one Hangul syllable (lead byte EA..ED).
    EXPECT_TRUE(std::any_of(entry.what.begin(), entry.what.end(),
                            [](unsigned char c) { return c >= 0xEA && c <= 0xED; })) << key;
  }
}

DictEntry entryWith(std::string what, Grade grade = Grade::unknown, std::string risk = "", bool regenerates = false,
                    Strings deletePaths = {}) {
  return DictEntry{"App", std::move(what), grade, std::move(deletePaths), std::move(risk), regenerates};
}

CleanupItem row(std::string path, int64_t bytes, V verdict, Strings deletePaths = {}, bool purge = false,
                std::string_view consequence = C::unknown) {
  return CleanupItem{"", std::move(path), bytes, 0, 0, verdict, isCheckedByDefault(verdict), "아직 무엇인지 모릅니다",
                     std::move(deletePaths), "", std::string(consequence), purge};
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
    const CleanupItem expected{c.name, path, 123, c.lastChanged, 4, c.verdict, isCheckedByDefault(c.verdict),
                               std::string(c.reason), c.entry.value_or(DictEntry{}).deletePaths,
                               std::string(c.what), std::string(c.consequence), c.purge};
    EXPECT_EQ(buildCleanupPlan("Library/Caches", {{c.name, {123, c.lastChanged, 4}}}, KnowledgeDictionary(entries),
                               installed, running, kNow,
                               [&](std::string_view asked) { return asked == path ? c.inherited : none; }),
              std::vector{expected}) << "row " << i << ": " << rawValue(c.verdict);
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
      {row("x", 1, V::regenerable, {}, true, "옛 결과"), loud, "새 위험 · 옛 결과"},
      {row("x", 1, V::inUse), loud, std::nullopt},
      {row("x", 1, V::keep), loud, std::nullopt},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& [before, entry, consequence] = cases[i];
    CleanupItem expected = before;
    if (consequence)
      std::tie(expected.what, expected.reason, expected.consequence) =
          std::tuple(entry.what, std::string(C::explainedReason), *consequence);
    EXPECT_EQ(explained(before, entry), expected) << "case " << i;
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
  ASSERT_EQ(seen.size(), 63u);
  // One call at a time, counting up; each carries its folder's finished row, so a screen can
  // show rows as they come.
  std::map<std::string, CleanupItem> reported, planned;
  for (size_t i = 0; i < seen.size(); ++i) {
    EXPECT_EQ(std::pair(seen[i].foldersDone, seen[i].foldersTotal), std::pair(int64_t(i) + 1, int64_t{63}));
    reported[seen[i].row.path] = seen[i].row;
    planned[many.items[i].path] = many.items[i];
  }
  EXPECT_EQ(reported, planned);
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

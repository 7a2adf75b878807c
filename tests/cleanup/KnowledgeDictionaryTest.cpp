#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "cleanup/CleanupPlan.hpp"
#include "cleanup/KnowledgeDictionary.hpp"
#include "scan/Classification.hpp"

namespace vorlan {
namespace {

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
  auto entry = [](const char* what) { return DictEntry{"", what, Grade::unknown, {}, "", false}; };
  const KnowledgeDictionary dictionary({
      {"Library/Caches", entry("caches")},
      {"Library/Caches/com.foo", entry("foo")},
      {"Library/Application Support/카카오톡", entry("kakao")},
      {"Library/Application Support/카카오톡/설정", entry("kakao settings")},
      {"Library/Application Support/카", entry("short korean")},
      {"Library/Logs/", entry("trailing slash")},
  });
  const std::pair<const char*, std::optional<std::string>> cases[] = {
      {"Library/Caches/com.foo/x", "foo"},
      {"Library/Caches/com.foobar", "caches"},
      {"Library/Caches", "caches"},
      {"Library/Cachesfoo", std::nullopt},
      {"Library/Application Support/카카오톡/설정/a", "kakao settings"},
      {"Library/Application Support/카카오톡/기록", "kakao"},
      {"Library/Application Support/카카오", std::nullopt},
      {"Library/Application Support/카/x", "short korean"},
      {"Library/Logs/x", std::nullopt},
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
    bool childOfParent = false;
    for (auto parent : CleanupPolicy::expandedParents)
      childOfParent = childOfParent || (key != parent && isAtOrUnder(key, parent) &&
                                        key.find('/', parent.size() + 1) == std::string::npos);
    EXPECT_TRUE(childOfParent) << key;
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

}  // namespace
}  // namespace vorlan

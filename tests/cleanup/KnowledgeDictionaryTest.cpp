#include <gtest/gtest.h>

#include <regex>

#include "cleanup/CleanupPlan.hpp"
#include "cleanup/KnowledgeDictionary.hpp"
#include "scan/Classification.hpp"

namespace vorlan {
namespace {

// True when the text holds at least one Hangul syllable (U+AC00..U+D7A3, EA B0 80..ED 9E A3).
bool hasHangul(const std::string& text) {
  for (size_t i = 0; i + 2 < text.size(); ++i) {
    unsigned lead = static_cast<unsigned char>(text[i]);
    if (lead < 0xEA || lead > 0xED) continue;
    unsigned cp = ((lead & 0x0F) << 12) | ((static_cast<unsigned char>(text[i + 1]) & 0x3F) << 6) |
                  (static_cast<unsigned char>(text[i + 2]) & 0x3F);
    if (cp >= 0xAC00 && cp <= 0xD7A3) return true;
  }
  return false;
}

TEST(KnowledgeDictionaryDecode, AnyMalformedPartLosesTheWholeDocument) {
  const char* good = R"("ok": {"what": "fine"})";
  struct Case { const char* label; std::string json; };
  const Case cases[] = {
      {"not JSON", "{"},
      {"empty text", ""},
      {"top level an array", "[]"},
      {"no entries", R"({"rows": {}})"},
      {"entries an array", R"({"entries": []})"},
      {"entries null", R"({"entries": null})"},
      {"row not an object", std::string(R"({"entries": {)") + good + R"(, "bad": "x"}})"},
      {"regenerates as string", std::string(R"({"entries": {)") + good + R"(, "bad": {"regenerates": "true"}}})"},
      {"regenerates as number", R"({"entries": {"bad": {"regenerates": 1}}})"},
      {"number in deletePaths", R"({"entries": {"bad": {"deletePaths": ["a", 2]}}})"},
      {"deletePaths as string", R"({"entries": {"bad": {"deletePaths": "a"}}})"},
      {"what as number", R"({"entries": {"bad": {"what": 3}}})"},
      {"grade as bool", R"({"entries": {"bad": {"grade": true}}})"},
      {"trailing garbage", R"({"entries": {}} x)"},
      {"invalid UTF-8", "{\"entries\": {\"\xff\": {}}}"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(KnowledgeDictionary::decodeEntries(c.json), std::nullopt) << c.label;
}

TEST(KnowledgeDictionaryDecode, RowsTakeDefaultsAndGradesAreExact) {
  auto entries = KnowledgeDictionary::decodeEntries(R"({
    "version": 3,
    "entries": {
      "Library/Caches/empty": {},
      "Library/Caches/full": {"app": "Foo", "what": "캐시", "grade": "SAFE",
                               "deletePaths": ["Library/Caches/full/a"], "risk": "위험",
                               "regenerates": true, "extra": [1, 2]},
      "Library/Caches/lower": {"grade": "safe"},
      "Library/Caches/review": {"grade": "REVIEW"},
      "Library/Caches/never": {"grade": "NEVER"},
      "Library/Caches/odd": {"grade": "Never "},
      "Library/Caches/nulls": {"what": null, "regenerates": null, "deletePaths": null},
      "~/Library/Caches/kept/": {}
    }})");
  ASSERT_TRUE(entries);
  const DictEntry blank{};
  EXPECT_EQ(entries->at("Library/Caches/empty"), blank);
  EXPECT_EQ(entries->at("Library/Caches/full"),
            (DictEntry{"Foo", "캐시", Grade::safe, {"Library/Caches/full/a"}, "위험", true}));
  EXPECT_EQ(entries->at("Library/Caches/lower").grade, Grade::unknown);
  EXPECT_EQ(entries->at("Library/Caches/review").grade, Grade::review);
  EXPECT_EQ(entries->at("Library/Caches/never").grade, Grade::never);
  EXPECT_EQ(entries->at("Library/Caches/odd").grade, Grade::unknown);
  EXPECT_EQ(entries->at("Library/Caches/nulls"), blank);
  // Keys stand as written: no "~" expansion, no trimming of the slash.
  EXPECT_TRUE(entries->contains("~/Library/Caches/kept/"));
  EXPECT_EQ(entries->size(), 8u);
}

TEST(KnowledgeDictionaryLookup, LongestKeyAtSlashBorders) {
  auto entry = [](const char* what) { return DictEntry{"", what, Grade::unknown, {}, "", false}; };
  KnowledgeDictionary dictionary({
      {"Library/Caches", entry("caches")},
      {"Library/Caches/com.foo", entry("foo")},
      {"Library/Application Support/카카오톡", entry("kakao")},
      {"Library/Application Support/카카오톡/설정", entry("kakao settings")},
      {"Library/Application Support/카", entry("short korean")},
      {"Library/Logs/", entry("trailing slash")},
  });
  struct Case { const char* path; std::optional<std::string> what; };
  const Case cases[] = {
      {"Library/Caches/com.foo/x", "foo"},
      {"Library/Caches/com.foo", "foo"},
      {"Library/Caches/com.foobar", "caches"},
      {"Library/Caches/other", "caches"},
      {"Library/Caches", "caches"},
      {"Library/Cachesfoo", std::nullopt},
      {"Library", std::nullopt},
      {"Library/Application Support/카카오톡/설정/a", "kakao settings"},
      {"Library/Application Support/카카오톡/기록", "kakao"},
      {"Library/Application Support/카카오", std::nullopt},
      {"Library/Application Support/카/x", "short korean"},
      {"Library/Logs", std::nullopt},
      {"Library/Logs/x", std::nullopt},
      {"Library/Logs//x", "trailing slash"},
      {"/Library/Caches/com.foo", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& c : cases) {
    auto found = dictionary.lookup(c.path);
    EXPECT_EQ(found ? std::optional(found->what) : std::nullopt, c.what) << c.path;
  }
}

// A file that fails to decode must leave the program working with nothing, not half a file.
TEST(KnowledgeDictionaryBundled, ShippedFileDecodesAndStaysImpersonal) {
  const auto shipped = KnowledgeDictionary::bundled();
  ASSERT_FALSE(shipped.entries.empty()) << "dictionary.json is empty or does not decode";

  const std::regex uuid("[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}");
  const std::regex longHex("[0-9A-Fa-f]{16,}");
  const std::regex longDigits("[0-9]{13,}");
  for (const auto& [key, entry] : shipped.entries) {
    bool underParent = false;
    for (auto parent : CleanupPolicy::expandedParents)
      underParent = underParent || (key != parent && isAtOrUnder(key, parent));
    EXPECT_TRUE(underParent) << key;
    // Keys travel in statistics; nothing in them may point at one person or one machine.
    EXPECT_EQ(key.find('@'), std::string::npos) << key;
    EXPECT_EQ(key.find('~'), std::string::npos) << key;
    EXPECT_EQ(key.find("//"), std::string::npos) << key;
    EXPECT_EQ(key.find("/../"), std::string::npos) << key;
    EXPECT_FALSE(key.ends_with('/')) << key;
    EXPECT_FALSE(std::regex_search(key, uuid)) << key;
    EXPECT_FALSE(std::regex_search(key, longHex)) << key;
    EXPECT_FALSE(std::regex_search(key, longDigits)) << key;
    for (const char* personal : {"/Users/", "/home/", "/Documents/", "/Desktop/"})
      EXPECT_EQ(key.find(personal), std::string::npos) << key;
    // The user reads these words in the plan.
    EXPECT_TRUE(hasHangul(entry.what)) << key;
    if (!entry.risk.empty()) {
      EXPECT_TRUE(hasHangul(entry.risk)) << key;
    }
  }
}

}  // namespace
}  // namespace vorlan

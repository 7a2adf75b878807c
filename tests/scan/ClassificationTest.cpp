// Rule matching and grading, the rule table itself, and the parsing of du and snapshot output.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "scan/Classification.hpp"
#include "scan/RuleTable.hpp"
#include "scan/ToolOutputParsers.hpp"

namespace vorlan {
namespace {

TEST(Classification, PathsRelateOnlyAtSlashBorders) {
  const struct { const char* path; const char* base; bool under; } cases[] = {
      {"Library/Caches", "Library/Caches", true},     {"Library/Caches/foo/bar", "Library/Caches", true},
      {"Library/Cachesfoo", "Library/Caches", false}, {"Library", "Library/Caches", false},
      {"/abs/x", "/abs", true},                       {"abs/x", "/abs", false},
  };
  for (const auto& c : cases) EXPECT_EQ(isAtOrUnder(c.path, c.base), c.under) << c.path << " | " << c.base;
  // The program's own folder, and nothing else, is kept out of every scan.
  for (const char* p : {".vorlan", ".vorlan/quarantine/x"}) EXPECT_TRUE(isOwnData(p)) << p;
  for (const char* p : {".vorlanx", "Library/.vorlan", ""}) EXPECT_FALSE(isOwnData(p)) << p;
}

// Each path with the rule that must describe it ("" for none); the rows' words are the table's own.
TEST(Classification, LongestFittingRuleWins) {
  const std::pair<const char*, std::string_view> cases[] = {
      {"Library/Caches", "Library/Caches"},
      {"Library/Containers/com.docker.docker/Data", "Library/Containers/com.docker.docker"},
      {"Library/Containers/com.other", "Library/Containers"},
      {".cache/huggingface/hub", ".cache/huggingface"},
      {"Library/Application Support/MobileSync/Backup/x", "Library/Application Support/MobileSync/Backup"},
      {"Library/Application Support/MobileSync", "Library/Application Support"},
      {"/System/Library/AssetsV2/x", "/System/Library/AssetsV2"},
      {"Library/Cachesfoo", ""},
      {"System/Library/AssetsV2", ""},
  };
  for (const auto& [path, winner] : cases) {
    const auto rule = std::find_if(rules().begin(), rules().end(), [&](const Rule& r) { return r.subpath == winner; });
    const Finding expected =
        rule == rules().end() ? Finding{path, 42, "미분류", Grade::unknown, "규칙에 없는 항목 — 직접 확인 필요", ""}
                              : Finding{path, 42, rule->category, rule->grade, rule->note, rule->hint};
    EXPECT_EQ(classify(path, 42, [](const std::string&) { return true; }), expected) << path;
  }
}

TEST(Classification, OrphanedToolTurnsItsDataSafe) {
  const HasBinary gone = [](const std::string&) { return false; };
  const HasBinary onlyOllama = [](const std::string& name) { return name == "ollama"; };
  const std::string hint = "ollama list 로 불용 모델 삭제";
  EXPECT_EQ(classify(".ollama/models", 7, gone),
            (Finding{".ollama/models", 7, "AI 모델", Grade::safe,
                     "주인 없는 캐시 데이터 — 'ollama' 도구가 삭제되어 더는 쓰이지 않음", hint}));
  EXPECT_EQ(classify(".ollama", 7, onlyOllama),
            (Finding{".ollama", 7, "AI 모델", Grade::review, "Ollama 모델 저장소", hint}));
  // A missing tool changes nothing where no rule names one; with no way to look, the tool counts as there.
  for (const char* other : {"Projects", "Library/Caches", ".ollamax"})
    EXPECT_EQ(classify(other, 1, gone), classify(other, 1, HasBinary{})) << other;
  EXPECT_EQ(classify(".ollama", 1, HasBinary{}).grade, Grade::review);
}

Finding sized(std::string path, std::optional<int64_t> size, bool subtracted = false) {
  return Finding{std::move(path), size, "c", Grade::review, subtracted ? "n (측정된 하위 항목 제외)" : "n", "h"};
}

TEST(Classification, SubtractDescendantsTakesMeasuredChildrenOutOfParents) {
  const int64_t gb = 1'000'000'000;
  const struct { const char* name; std::vector<Finding> input, expected; } cases[] = {
      {"child out of parent, a name that only begins the same is no child",
       {sized("a", 10 * gb), sized("a/b", 3 * gb), sized("ab", 1), sized("a b", 2)},
       {sized("a", 7 * gb, true), sized("a/b", 3 * gb), sized("ab", 1), sized("a b", 2)}},
      {"never below zero",
       {sized("a", 1 * gb), sized("a/x", 3 * gb), sized("a/y", 3 * gb)},
       {sized("a", 0, true), sized("a/x", 3 * gb), sized("a/y", 3 * gb)}},
      {"absent sizes change nothing",
       {sized("a", std::nullopt), sized("a/b", 5), sized("c", 9), sized("c/d", std::nullopt)},
       {sized("a", std::nullopt), sized("a/b", 5), sized("c", 9), sized("c/d", std::nullopt)}},
      {"grandchildren count from input sizes, child first in order",
       {sized("a/b/c", 1), sized("a/b", 4), sized("a", 10)},
       {sized("a/b/c", 1), sized("a/b", 3, true), sized("a", 5, true)}},
      {"same path twice is not its own child", {sized("a", 5), sized("a", 5)}, {sized("a", 5), sized("a", 5)}},
  };
  for (const auto& c : cases) EXPECT_EQ(subtractDescendants(c.input), c.expected) << c.name;
}

TEST(RuleTable, NinetyDistinctRowsWithTheirGradeCounts) {
  std::map<Grade, int> grades;
  std::set<std::string> subpaths;  // a row twice would be measured and counted twice
  for (const Rule& r : rules()) {
    ++grades[r.grade];
    subpaths.insert(r.subpath);
    EXPECT_FALSE(r.subpath.empty() || r.subpath.ends_with('/') || r.subpath.starts_with('~')) << r.subpath;
  }
  // A grade moved towards safe would tick the folders below the row for deletion.
  EXPECT_EQ(grades, (std::map<Grade, int>{{Grade::safe, 15}, {Grade::review, 58}, {Grade::never, 17}}));
  EXPECT_EQ(std::pair(subpaths.size(), rules().size()), (std::pair<size_t, size_t>{90, 90}));
}

TEST(ToolOutputParsers, DuKeepsWellFormedLinesOnly) {
  const int64_t maxKb = INT64_MAX / 1024;
  const std::pair<std::string, std::vector<DuEntry>> cases[] = {
      {"", {}},
      {"1\t/a\n\n2\t/b\nx\n", {{1024, "/a"}, {2048, "/b"}}},
      {"1\t/a b\tc", {{1024, "/a b\tc"}}},
      {"  7 \t  /a/사진 모음  \n0\t/empty\n", {{7 * 1024, "/a/사진 모음"}, {0, "/empty"}}},
      {"3\t/crlf\r\n", {{3 * 1024, "/crlf\r"}}},
      // Unicode blanks around either part go (no-break, ideographic, em, narrow no-break);
      // a zero-width space or a broken sequence is no blank.
      {"\xC2\xA0" "7\xE3\x80\x80\t\xE2\x80\x83/사진\xE2\x80\xAF\n1\t\xE2\x80\x8B/a \xC2\n",
       {{7 * 1024, "/사진"}, {1024, "\xE2\x80\x8B/a \xC2"}}},
      {"du: /x: Permission denied\nabc\t/x\n12\t\n\t/x\n12 /x\n+5\t/x\n-5\t/x\n1.5\t/x\n", {}},
      {"\xD9\xA3\t/arabic-indic-three\n", {}},
      // Sizes that would overflow once turned into bytes are dropped, not wrapped.
      {std::to_string(maxKb) + "\t/big\n" + std::to_string(maxKb + 1) + "\t/over\n99999999999999999999\t/x\n",
       {{maxKb * 1024, "/big"}}},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(parseDuEntries(text), expected) << text;
}

// Snapshot names count in the report; a wrong split of a line adds or loses one.
TEST(ToolOutputParsers, SnapshotNamesFromBothToolsAndTheirMerge) {
  using Names = std::vector<std::string>;
  const std::pair<std::string, Names> tmutil[] = {
      {"", {}},
      {"Snapshots for disk /:\n  com.apple.TimeMachine.2024-01-01-000000.local\n\n",
       {"com.apple.TimeMachine.2024-01-01-000000.local"}},
      {"x com.apple.TimeMachine.a\t\ncom.apple.os.update-1\n", {"x com.apple.TimeMachine.a"}},
  };
  for (const auto& [text, names] : tmutil) EXPECT_EQ(parseSnapshotList(text), names) << text;
  const std::pair<std::string, Names> diskutil[] = {
      {"", {}},
      {"Name: a:b\nname: a\nName:\n  Name :  c  \nXID: 5\nNames: d\nno colon\n", {"a:b", "c"}},
  };
  for (const auto& [text, names] : diskutil) EXPECT_EQ(parseDiskutilSnapshots(text), names) << text;
  EXPECT_EQ(mergeSnapshotNames({"a", "b"}, {"b", "c", "c"}), (Names{"a", "b", "c"}));
  EXPECT_EQ(mergeSnapshotNames({"a", "a"}, {"a"}), (Names{"a", "a"}));  // the first list's doubles stay
}

}  // namespace
}  // namespace vorlan

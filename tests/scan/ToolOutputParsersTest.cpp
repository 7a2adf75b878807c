#include <gtest/gtest.h>

#include "scan/ToolOutputParsers.hpp"

namespace vorlan {
namespace {

using Names = std::vector<std::string>;

TEST(TrimBlanks, RemovesUnicodeHorizontalBlanksButNotLineBreaks) {
  struct Case { std::string in; std::string out; };
  const Case cases[] = {
      {"  a b \t", "a b"},
      {"\xC2\xA0" "a" "\xE3\x80\x80", "a"},          // no-break space, ideographic space
      {"\xE2\x80\x83" "사진\xE2\x80\xAF", "사진"},    // em space, narrow no-break space
      {"\na\n", "\na\n"},
      {"a\r", "a\r"},
      {"\xE2\x80\x8B" "a", "\xE2\x80\x8B" "a"},     // zero-width space is no blank
      {"\xC2" " a", "\xC2" " a"},                   // broken sequence stays
      {"a \xF0\x9F\x98\x80", "a \xF0\x9F\x98\x80"},
      {" \t ", ""},
      {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(trimBlanks(c.in), c.out) << c.in;
}

TEST(ParseDuEntries, KeepsWellFormedLinesOnly) {
  struct Case { std::string text; std::vector<DuEntry> expected; };
  const int64_t maxKb = INT64_MAX / 1024;
  const Case cases[] = {
      {"", {}},
      {"2048\t/Users/a/Library", {{2048 * 1024, "/Users/a/Library"}}},
      {"1\t/a\n\n2\t/b\nx\n", {{1024, "/a"}, {2048, "/b"}}},
      {"1\t/a b\tc", {{1024, "/a b\tc"}}},
      {"  7 \t  /a/사진 모음  \n", {{7 * 1024, "/a/사진 모음"}}},
      {"0\t/empty\n", {{0, "/empty"}}},
      {"3\t/crlf\r\n", {{3 * 1024, "/crlf\r"}}},
      {"du: /x: Permission denied\nabc\t/x\n12\t\n\t/x\n12 /x\n+5\t/x\n-5\t/x\n", {}},
      {"\xD9\xA3\t/arabic-indic-three\n", {}},
      {"1.5\t/x\n", {}},
      {std::to_string(maxKb) + "\t/big\n", {{maxKb * 1024, "/big"}}},
      {std::to_string(maxKb + 1) + "\t/over\n99999999999999999999\t/way-over\n", {}},
  };
  for (const auto& c : cases) EXPECT_EQ(parseDuEntries(c.text), c.expected) << c.text;
}

TEST(ParseSnapshotList, KeepsTimeMachineLines) {
  EXPECT_EQ(parseSnapshotList(""), Names{});
  EXPECT_EQ(parseSnapshotList("Snapshots for disk /:\n  com.apple.TimeMachine.2024-01-01-000000.local\n"),
            Names{"com.apple.TimeMachine.2024-01-01-000000.local"});
  EXPECT_EQ(parseSnapshotList("\n\tcom.apple.TimeMachine.a\nother\nx com.apple.TimeMachine.b \n"),
            (Names{"com.apple.TimeMachine.a", "x com.apple.TimeMachine.b"}));
  EXPECT_EQ(parseSnapshotList("com.apple.TimeMachine\n"), Names{});
}

TEST(ParseDiskutilSnapshots, ReadsNameValues) {
  struct Case { std::string text; Names expected; };
  const Case cases[] = {
      {"", {}},
      {"Name: a:b", {"a:b"}},
      {"name: a", {}},
      {"Name:", {}},
      {"Name:   \t", {}},
      {"Snapshots for disk3s1s1 (2 found)\n|\n+-- 1E2F\n|   Name:        com.apple.os.update-1\n"
       "|   XID:         12\n+-- 3A4B\n    Name:        com.apple.TimeMachine.2024\n",
       {"com.apple.TimeMachine.2024"}},  // the key must be "Name" exactly, not "|   Name"
      {"   Name:        com.apple.os.update-1\n   XID:  12\n  Name :  second \n",
       {"com.apple.os.update-1", "second"}},
  };
  for (const auto& c : cases) EXPECT_EQ(parseDiskutilSnapshots(c.text), c.expected) << c.text;
}

TEST(MergeSnapshotNames, PrimaryThenWhatSecondaryAdds) {
  EXPECT_EQ(mergeSnapshotNames({"a", "b"}, {"b", "c", "c"}), (Names{"a", "b", "c"}));
  EXPECT_EQ(mergeSnapshotNames({"a", "a"}, {"a"}), (Names{"a", "a"}));
  EXPECT_EQ(mergeSnapshotNames({}, {"x", "y", "x"}), (Names{"x", "y"}));
  EXPECT_EQ(mergeSnapshotNames({"z"}, {}), (Names{"z"}));
}

}  // namespace
}  // namespace vorlan

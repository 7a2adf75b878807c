#include <gtest/gtest.h>

#include "scan/ToolOutputParsers.hpp"

namespace vorlan {
namespace {

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

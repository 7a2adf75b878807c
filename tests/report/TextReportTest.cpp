#include <fmt/format.h>
#include <gtest/gtest.h>

#include "report/TextReport.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

constexpr int64_t listedFrom = 500'000'000;

std::string golden(const std::string& name) {
  return test::readFile(std::filesystem::path(VORLAN_SOURCE_DIR) / "tests/report/golden" / name);
}

Finding finding(std::string path, std::optional<int64_t> size, Grade grade, std::string note,
                std::string hint = "") {
  return {std::move(path), size, "분류", grade, std::move(note), std::move(hint)};
}

TEST(TextReport, FullReportLayout) {
  DeepScanResult r;
  r.diskTotalBytes = 494'384'795'648;
  r.diskFreeBytes = 61'234'567'890;
  r.runningContainers = 2;
  r.snapshots = {"com.apple.TimeMachine.2024-03-01-101010.local",
                 "com.apple.TimeMachine.2024-03-02-101010.local"};
  r.findings = {
      finding("Library/Caches", 8'000'000'000, Grade::safe, "앱 캐시", "앱을 닫고 지우세요"),
      finding("Library/Developer/Xcode/DerivedData", 8'000'000'000, Grade::safe, "Xcode 빌드 산출물"),
      finding("/Library/Updates", listedFrom, Grade::review, "대기 중인 업데이트"),
      finding(".npm", listedFrom - 1, Grade::safe, "npm 캐시"),
      finding("Library/Containers/com.docker.docker", 1'234'567'890'123, Grade::never,
              "Docker 디스크 이미지", "Docker 앱 안에서 정리하세요"),
      finding("Movies/Big", 12'345'678'901'234, Grade::unknown, "분류되지 않은 폴더"),
      finding("Library/Application Support/Code", std::nullopt, Grade::review, "편집기 데이터"),
      finding("Library/Caches/Homebrew", 2'500'000'000, Grade::review, "Homebrew 다운로드",
              "brew cleanup 으로 정리"),
  };
  r.cleanupTotals = {{"Library/Caches/Homebrew", {1'200'000'000, 0}},
                     {"Library/Caches", {0, 300'000'000}},
                     {"Library/Developer/Xcode/DerivedData", {0, 0}},
                     {"~/Library/Caches/Homebrew", {9'000'000'000, 0}}};
  EXPECT_EQ(renderReport(r, listedFrom, "") + "\n", golden("report-full.txt"));
}

TEST(TextReport, NothingListedStillGivesTotalsAndTheContactLine) {
  DeepScanResult r;
  r.runningContainers = 0;
  r.findings = {finding(".npm", listedFrom - 1, Grade::safe, "npm 캐시")};
  EXPECT_EQ(renderReport(r, listedFrom, "help@example.com") + "\n",
            golden("report-empty-with-contact.txt"));
}

TEST(TextReport, UnsizedFindingsAreListedOnlyWithoutAMinimum) {
  DeepScanResult r;
  r.findings = {finding("Library/Logs", std::nullopt, Grade::review, "로그")};
  const std::string row = "     0.0GB  ~/Library/Logs — 로그";
  for (int64_t minBytes : {int64_t{-1}, int64_t{0}})
    EXPECT_NE(renderReport(r, minBytes, "").find(row), std::string::npos) << minBytes;
  EXPECT_EQ(renderReport(r, 1, "").find(row), std::string::npos);
}

TEST(TextReport, EqualSizesKeepTheScanOrder) {
  // Enough rows that an unstable sort would reorder them.
  DeepScanResult r;
  for (int i = 0; i < 40; ++i)
    r.findings.push_back(finding(fmt::format("Library/d{:02}", i), 700'000'000, Grade::safe, "x"));
  r.findings.push_back(finding("Library/big", 900'000'000, Grade::safe, "x"));
  const std::string text = renderReport(r, listedFrom, "");
  size_t at = text.find("~/Library/big");
  for (int i = 0; i < 40; ++i) {
    const size_t next = text.find(fmt::format("~/Library/d{:02} ", i));
    ASSERT_NE(next, std::string::npos);
    EXPECT_GT(next, at) << i;
    at = next;
  }
}

TEST(TextReport, ContactNoteNeedsAnAddress) {
  EXPECT_EQ(contactNote(""), std::nullopt);
  EXPECT_EQ(contactNote("a@b.kr"),
            "정리가 막막하면 a@b.kr 로 리포트를 붙여 보내주세요 — 안전한 순서를 알려드립니다.");
  EXPECT_EQ(contactNote().has_value(), !supportEmail().empty());
}

TEST(TextReport, CleanupSummaryLine) {
  struct Case { int64_t stale, orphan; std::optional<std::string> line; };
  const Case cases[] = {
      {0, 0, std::nullopt},
      {-5, 0, std::nullopt},
      {1, 0, "            └ 90일 미사용 0.0GB"},
      {0, 2'450'000'000, "            └ 주인 없는 캐시 2.5GB"},
      {91'000'000'000, 1'000'000'000, "            └ 90일 미사용 91.0GB · 주인 없는 캐시 1.0GB"},
  };
  for (const auto& c : cases) EXPECT_EQ(cleanupSummaryLine(c.stale, c.orphan), c.line);
}

TEST(TextReport, GradeTotalsHoldEveryGrade) {
  const auto totals = gradeTotals({finding("a", 3, Grade::safe, ""), finding("b", 4, Grade::safe, ""),
                                   finding("c", std::nullopt, Grade::never, "")});
  EXPECT_EQ(totals, (std::map<Grade, int64_t>{
                        {Grade::safe, 7}, {Grade::review, 0}, {Grade::never, 0}, {Grade::unknown, 0}}));
}

}  // namespace
}  // namespace vorlan

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
  r.snapshots = {"com.apple.TimeMachine.2024-03-01-101010.local", "com.apple.TimeMachine.2024-03-02-101010.local"};
  // Exactly at the minimum is listed, a byte below is not, nor is an unsized finding.
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
  r.runningContainers = 0;  // no warning line for zero containers
  r.findings = {finding(".npm", listedFrom - 1, Grade::safe, "npm 캐시")};
  EXPECT_EQ(renderReport(r, listedFrom, "help@example.com") + "\n", golden("report-empty-with-contact.txt"));
}

TEST(TextReport, GradeGroupsListFromTheMinimumLargestFirst) {
  const std::vector<Finding> findings{
      finding("a", listedFrom - 1, Grade::safe, ""),
      finding("b", std::nullopt, Grade::safe, ""),
      finding("c", listedFrom, Grade::never, ""),
      finding("d", 2 * listedFrom, Grade::never, ""),
      finding("e", 3 * listedFrom, Grade::unknown, ""),
  };
  const auto groups = gradeGroups(findings);
  ASSERT_EQ(groups.size(), 2u);  // no safe group: one finding is a byte short, one has no size
  EXPECT_EQ(groups[0].grade, Grade::unknown);
  EXPECT_EQ(groups[1].grade, Grade::never);
  ASSERT_EQ(groups[1].findings.size(), 2u);
  EXPECT_EQ(groups[1].findings[0].path, "d");
}

}  // namespace
}  // namespace vorlan

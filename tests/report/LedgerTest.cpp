#include <gtest/gtest.h>

#include "report/Ledger.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

// Golden files hold the expected text followed by one line feed, as text files do.
std::string golden(const std::string& name) {
  return test::readFile(std::filesystem::path(VORLAN_SOURCE_DIR) / "tests/report/golden" / name);
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const auto& line : lines) text += line + "\n";
  return text;
}

Finding finding(std::string path, std::optional<int64_t> size, Grade grade,
                std::string category = "분류") {
  return {std::move(path), size, std::move(category), grade, "설명", ""};
}

DeepScanResult withFindings(std::vector<Finding> findings) {
  DeepScanResult r;
  r.findings = std::move(findings);
  return r;
}

TEST(Ledger, SystemDataIsAbsolutePathsDotFoldersAndLibraryButNotICloudDrive) {
  const std::pair<const char*, bool> cases[] = {
      {"/private/var/vm", true}, {"/Users/me/Documents", true},  {"Library", true},
      {"Library/Caches/x", true}, {".gradle/caches", true},      {".Trash", true},
      {"Documents/x", false},     {"Downloads", false},          {"", false},
      {"LibraryX/y", false},      {"Movies/Library", false},     {"x/.hidden", false},
      {"Library/Mobile Documents", false},
      {"Library/Mobile Documents/com~apple~CloudDocs", false},
      {"Library/Mobile DocumentsX", true},
  };
  for (const auto& [path, expected] : cases) EXPECT_EQ(isSystemData(path), expected) << path;
}

TEST(Ledger, SummarySumsOnlySystemDataAndRanksKeptCategories) {
  const auto r = withFindings({
      finding("Library/Caches", 10'000'000'000, Grade::safe),
      finding(".docker", 5'000'000'000, Grade::review),
      finding("/private/var/vm", 3'000'000'000, Grade::unknown),
      finding("Library/Containers/A", 4'000'000'000, Grade::never, "컨테이너 데이터"),
      finding("Library/Messages", 4'000'000'000, Grade::never, "메시지"),
      finding("Library/Photos", 6'000'000'000, Grade::never, "사진 보관함"),
      finding("Library/Mail", 1'000'000'000, Grade::never, "메일"),
      finding("Documents/big", 50'000'000'000, Grade::never, "문서"),
      finding("Library/Mobile Documents", 7'000'000'000, Grade::never, "iCloud"),
      finding("Library/Logs", std::nullopt, Grade::review),
  });
  EXPECT_EQ(ledgerSummary(r, std::nullopt), std::nullopt);
  EXPECT_TRUE(reconcile(r, std::nullopt).empty());

  const auto s = ledgerSummary(r, 100.0);
  ASSERT_TRUE(s);
  EXPECT_DOUBLE_EQ(s->identifiedGB, 33.0);
  EXPECT_DOUBLE_EQ(s->safeGB, 10.0);
  EXPECT_DOUBLE_EQ(s->neverGB, 15.0);  // the fourth kept category counts, though not shown
  EXPECT_DOUBLE_EQ(s->candidateGB(), 8.0);
  EXPECT_DOUBLE_EQ(s->remainderGB, 67.0);
  EXPECT_EQ(s->overshootGB, 0.0);
  EXPECT_EQ(s->neverBreakdown, "사진 보관함 6.0GB · 메시지 4.0GB · 컨테이너 데이터 4.0GB");
  EXPECT_EQ(joined(reconcile(r, 100.0)), golden("reconcile-missing-much.txt"));

  // A kept finding without a size still names its category.
  const auto sized = ledgerSummary(withFindings({finding("Library/A", 2'000'000'000, Grade::never, "가"),
                                                 finding("Library/B", std::nullopt, Grade::never, "나")}),
                                   10.0);
  EXPECT_EQ(sized->neverBreakdown, "가 2.0GB · 나 0.0GB");
}

TEST(Ledger, ReconcileLinesFollowTheBalance) {
  struct Case { const char* golden; double figure; std::vector<Finding> findings; };
  const Case cases[] = {
      {"reconcile-overshoot.txt", 20.0,
       {finding("Library/Caches", 15'000'000'000, Grade::safe),
        finding(".cache", 9'500'000'000, Grade::review)}},
      {"reconcile-exact.txt", 12.5, {finding("Library/Caches", 12'500'000'000, Grade::safe)}},
      // Safe plus kept is all there is: the review figure must not read -0.0.
      {"reconcile-nothing-review.txt", 300.0,
       {finding("Library/Caches", 108'800'000'000, Grade::safe),
        finding("Library/Photos", 163'100'000'000, Grade::never, "사진")}},
      {"reconcile-zero-figure.txt", 0.0, {}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(joined(reconcile(withFindings(c.findings), c.figure)), golden(c.golden)) << c.golden;
}

TEST(Ledger, ZeroFigureMakesEverythingOvershoot) {
  const auto s = ledgerSummary(withFindings({finding("Library/Caches", 3'000'000'000, Grade::safe)}), 0.0);
  EXPECT_EQ(s->coveragePercent, 0.0);
  EXPECT_EQ(s->remainderGB, 0.0);
  EXPECT_DOUBLE_EQ(s->overshootGB, 3.0);
}

TEST(Ledger, PhantomTriageNeedsBigRemainderLowCoverageAndNoOvershoot) {
  struct Case { double figure; int64_t identified; bool shows; };
  const Case cases[] = {
      {50.0, 20'000'000'000, true},    // remainder exactly 30.0 counts
      {49.9, 20'000'000'000, false},   // remainder 29.9
      {100.0, 60'000'000'000, false},  // coverage exactly 60.0 does not
      {100.0, 59'900'000'000, true},
      {100.0, 0, true},
      {10.0, 20'000'000'000, false},   // overshoot
  };
  for (const auto& c : cases) {
    const auto r = withFindings({finding("Library/X", c.identified, Grade::review)});
    const auto s = ledgerSummary(r, c.figure);
    EXPECT_EQ(s->showsPhantomTriage(), c.shows) << c.figure << " " << c.identified;
    const auto lines = reconcile(r, c.figure);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), std::string(phantomTriageNote)), c.shows ? 1 : 0);
  }
  EXPECT_EQ(ledgerSummary(withFindings({finding("Library/X", 60'000'000'000, Grade::review)}), 100.0)
                ->coveragePercent,
            60.0);
}

TEST(Ledger, BalanceOfTheWholeDisk) {
  DeepScanResult r;
  EXPECT_EQ(balanceSummary(r, 50.0), std::nullopt);
  EXPECT_TRUE(balanceSheet(r, 50.0).empty());

  r.diskUsedSettingsBytes = 400'000'000'000;
  EXPECT_EQ(balanceSummary(r, std::nullopt), (BalanceSummary{400.0, std::nullopt, std::nullopt}));
  EXPECT_EQ(joined(balanceSheet(r, std::nullopt)),
            "내 맥 저장공간 정산 — 총 사용량 400.0GB (설정 기준, 근사)\n"
            "└─ '시스템 데이터' 규모는 설정 > 일반 > 저장 공간에서 확인해 다음 스캔에 입력하세요\n");
  EXPECT_EQ(balanceSummary(r, 120.0), (BalanceSummary{400.0, 280.0, 120.0}));

  r.diskUsedSettingsBytes = 30'000'000'000;  // settings total below the stated figure
  EXPECT_EQ(balanceSummary(r, 120.0), (BalanceSummary{30.0, 0.0, 120.0}));
  EXPECT_EQ(balanceSheet(r, 120.0).at(1),
            "├─ 애플 카테고리 합계: 0.0GB (문서·응용 프로그램·사진·macOS 등)");
}

TEST(Ledger, ICloudNoteFromFiveGigabytesOfTheFirstMatchingFinding) {
  const std::string note5 =
      "※ iCloud Drive 로컬 사본(~/Library/Mobile Documents)이 이 맥에서 5.0GB를 차지합니다. "
      "설정은 이걸 시스템 데이터가 아닌 iCloud Drive 칸으로 세므로 위 정산에서도 뺐습니다 — "
      "지우면 안 되는 실데이터고, 줄이려면 'Mac 저장 공간 최적화'를 켜세요.";
  const std::string icloud = "Library/Mobile Documents";
  struct Case { std::vector<Finding> findings; std::optional<std::string> note; };
  const Case cases[] = {
      {{finding(icloud, 4'999'999'999, Grade::never)}, std::nullopt},
      {{finding(icloud, 5'000'000'000, Grade::never)}, note5},
      {{finding(icloud, std::nullopt, Grade::never)}, std::nullopt},
      {{finding(icloud + "/x", 9'000'000'000, Grade::never)}, std::nullopt},
      {{finding(icloud, 1, Grade::never), finding(icloud, 9'000'000'000, Grade::never)}, std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(icloudNote(withFindings(c.findings)), c.note);
}

}  // namespace
}  // namespace vorlan

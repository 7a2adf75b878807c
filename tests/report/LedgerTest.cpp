#include <gtest/gtest.h>

#include "report/Ledger.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

Finding finding(std::string path, std::optional<int64_t> size, Grade grade, std::string category = "분류") {
  return {std::move(path), size, std::move(category), grade, "설명", ""};
}

DeepScanResult withFindings(std::vector<Finding> findings) {
  DeepScanResult r;
  r.findings = std::move(findings);
  return r;
}

TEST(Ledger, ReconcileLinesFollowTheBalance) {
  struct Case { const char* golden; double figure; std::vector<Finding> findings; };
  const Case cases[] = {
      // Only system data counts (not Documents, not the iCloud Drive copy); three kept categories
      // are named but the fourth still adds to the kept total.
      {"reconcile-missing-much.txt", 100.0,
       {finding("Library/Caches", 10'000'000'000, Grade::safe),
        finding(".docker", 5'000'000'000, Grade::review),
        finding("/private/var/vm", 3'000'000'000, Grade::unknown),
        finding("Library/Containers/A", 4'000'000'000, Grade::never, "컨테이너 데이터"),
        finding("Library/Messages", 4'000'000'000, Grade::never, "메시지"),
        finding("Library/Photos", 6'000'000'000, Grade::never, "사진 보관함"),
        finding("Library/Mail", 1'000'000'000, Grade::never, "메일"),
        finding("Documents/big", 50'000'000'000, Grade::never, "문서"),
        finding("Library/Mobile Documents", 7'000'000'000, Grade::never, "iCloud"),
        finding("Library/Logs", std::nullopt, Grade::review)}},
      {"reconcile-overshoot.txt", 20.0,
       {finding("Library/Caches", 15'000'000'000, Grade::safe), finding(".cache", 9'500'000'000, Grade::review)}},
      {"reconcile-exact.txt", 12.5, {finding("Library/Caches", 12'500'000'000, Grade::safe)}},
      // Safe plus kept is all there is: the review figure must not read -0.0.
      {"reconcile-nothing-review.txt", 300.0,
       {finding("Library/Caches", 108'800'000'000, Grade::safe),
        finding("Library/Photos", 163'100'000'000, Grade::never, "사진")}},
      {"reconcile-zero-figure.txt", 0.0, {}},
  };
  for (const auto& c : cases) {
    std::string text;
    for (const auto& line : reconcile(withFindings(c.findings), c.figure)) text += line + "\n";
    EXPECT_EQ(text, test::readFile(std::filesystem::path(VORLAN_SOURCE_DIR) / "tests/report/golden" / c.golden))
        << c.golden;
  }
}

TEST(Ledger, PhantomTriageNeedsBigRemainderLowCoverageAndNoOvershoot) {
  struct Case { double figure; int64_t identified; bool shows; };
  const Case cases[] = {
      {50.0, 20'000'000'000, true},    // remainder exactly 30.0 counts
      {49.9, 20'000'000'000, false},   // remainder 29.9
      {100.0, 60'000'000'000, false},  // coverage exactly 60 % does not
      {100.0, 59'900'000'000, true},
      {10.0, 20'000'000'000, false},   // overshoot
  };
  for (const auto& c : cases) {
    const auto lines = reconcile(withFindings({finding("Library/X", c.identified, Grade::review)}), c.figure);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), std::string(phantomTriageNote)), c.shows ? 1 : 0)
        << c.figure << " " << c.identified;
  }
}

TEST(Ledger, ICloudNoteFromFiveGigabytes) {
  const std::string icloud = "Library/Mobile Documents";
  EXPECT_EQ(icloudNote(withFindings({finding(icloud, 4'999'999'999, Grade::never)})), std::nullopt);
  EXPECT_EQ(icloudNote(withFindings({finding(icloud + "/x", 9'000'000'000, Grade::never)})), std::nullopt);
  EXPECT_EQ(icloudNote(withFindings({finding(icloud, 5'000'000'000, Grade::never)})),
            "※ iCloud Drive 로컬 사본(~/Library/Mobile Documents)이 이 맥에서 5.0GB를 차지합니다. "
            "설정은 이걸 시스템 데이터가 아닌 iCloud Drive 칸으로 세므로 위 정산에서도 뺐습니다 — "
            "지우면 안 되는 실데이터고, 줄이려면 'Mac 저장 공간 최적화'를 켜세요.");
}

// The balance sheet with and without a typed figure, and without the settings' used figure.
TEST(Ledger, BalanceSheetWithAndWithoutAFigure) {
  DeepScanResult r;
  r.diskUsedSettingsBytes = 500'000'000'000;
  using Lines = std::vector<std::string>;
  EXPECT_EQ(balanceSheet(r, 132.19),
            (Lines{"내 맥 저장공간 정산 — 총 사용량 500.0GB (설정 기준, 근사)",
                   "├─ 애플 카테고리 합계: 367.8GB (문서·응용 프로그램·사진·macOS 등)",
                   "└─ 시스템 데이터: 132.2GB ← 이 리포트가 해부하는 영역"}));
  EXPECT_EQ(balanceSheet(r, std::nullopt),
            (Lines{"내 맥 저장공간 정산 — 총 사용량 500.0GB (설정 기준, 근사)",
                   "└─ '시스템 데이터' 규모는 설정 > 일반 > 저장 공간에서 확인해 다음 스캔에 입력하세요"}));
  EXPECT_EQ(balanceSheet(r, 600.0)[1], "├─ 애플 카테고리 합계: 0.0GB (문서·응용 프로그램·사진·macOS 등)");
  r.diskUsedSettingsBytes.reset();
  EXPECT_TRUE(balanceSheet(r, 132.19).empty());
}

}  // namespace
}  // namespace vorlan

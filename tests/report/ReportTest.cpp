// The scan report (text, Markdown, the system-data ledger) against golden files, and the
// three-line account of a cleanup.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <locale>

#include "report/CleanupLedger.hpp"
#include "report/Ledger.hpp"
#include "report/MarkdownReport.hpp"
#include "report/TextReport.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
constexpr int64_t listedFrom = 500'000'000;

std::string golden(const std::string& name) {
  return test::readFile(fs::path(VORLAN_SOURCE_DIR) / "tests/report/golden" / name);
}

Finding finding(std::string path, std::optional<int64_t> size, Grade grade, std::string note = "설명",
                std::string hint = "", std::string category = "분류") {
  return {std::move(path), size, std::move(category), grade, std::move(note), std::move(hint)};
}

DeepScanResult withFindings(std::vector<Finding> findings) {
  DeepScanResult r;
  r.findings = std::move(findings);
  return r;
}

QuarantineBatch batch(int64_t expires, std::vector<int64_t> sizes) {
  QuarantineBatch b{"id", expires - 604800, expires, {}, {}};
  for (auto bytes : sizes) b.items.push_back({"p", "p", bytes});
  return b;
}

constexpr int64_t kEvening = 1774123200;  // 2026-03-21 20:00 UTC, already the 22nd in Seoul

TEST(CleanupLedger, SumsEveryItemAndTakesTheEarliestExpiry) {
  // An empty batch still holds the earliest date.
  EXPECT_EQ(cleanupLedger({batch(kEvening + 50, {100, 200}), batch(kEvening, {}), batch(kEvening + 10, {3})}, 7),
            (CleanupLedger{303, 7, kEvening}));
  EXPECT_EQ(cleanupLedger({}, 0), (CleanupLedger{0, 0, std::nullopt}));
}

TEST(CleanupLedger, RendersAlignedAmountsAndTheLocalDate) {
  const std::string saved = std::getenv("TZ") ? std::getenv("TZ") : "";
  ::setenv("TZ", "KST-9", 1);
  ::tzset();
  const std::pair<CleanupLedger, Lines> cases[] = {
      {{0, 0, kEvening}, {}},  // a batch of empty items, nothing freed
      {{0, 1, std::nullopt}, {"치운 파일    0.0GB   되돌릴 수 있어요", "비운 공간    0.0GB"}},
      {{1'234'567'890, 20'000'000'000, kEvening},
       {"치운 파일    1.2GB   되돌릴 수 있어요", "비운 공간   20.0GB", "보관 기한 2026-03-22"}},
      {{123'456'789'012'345, 0, std::nullopt},  // a long amount is not cut
       {"치운 파일 123456.8GB   되돌릴 수 있어요", "비운 공간    0.0GB"}},
  };
  for (const auto& [ledger, lines] : cases) EXPECT_EQ(renderCleanupLedger(ledger), lines) << ledger.movedBytes;
  saved.empty() ? ::unsetenv("TZ") : ::setenv("TZ", saved.c_str(), 1);
  ::tzset();
}

// The measured change of the disk wins unless it is under a tenth of what the manifests
// promise, or a figure is missing; a disk that filled up meanwhile counts as no change.
TEST(CleanupLedger, FreedByEmptying) {
  const int64_t G = 1'000'000'000;
  const std::tuple<std::optional<int64_t>, std::optional<int64_t>, int64_t> cases[] = {
      {100 * G, 99 * G + G / 2, 20 * G},  // 0.5 GB measured: lagging, the promise counts
      {100 * G, 98 * G, 2 * G},           // exactly a tenth: measured
      {100 * G, 101 * G, 20 * G},         // the disk filled up
      {std::nullopt, 98 * G, 20 * G},
      {100 * G, std::nullopt, 20 * G},
  };
  for (const auto& [before, after, freed] : cases) EXPECT_EQ(freedByEmptying(20 * G, before, after), freed);
}

TEST(Ledger, ReconcileLinesFollowTheBalance) {
  const auto kept = [](const char* path, double gb, const char* category) {
    return finding(path, std::llround(gb * 1e9), Grade::never, "설명", "", category);
  };
  const std::tuple<const char*, double, std::vector<Finding>> cases[] = {
      // Only system data counts (not Documents, not the iCloud Drive copy); three kept categories
      // are named but the fourth still adds to the kept total.
      {"reconcile-missing-much.txt", 100.0,
       {finding("Library/Caches", 10'000'000'000, Grade::safe), finding(".docker", 5'000'000'000, Grade::review),
        finding("/private/var/vm", 3'000'000'000, Grade::unknown), kept("Library/Containers/A", 4, "컨테이너 데이터"),
        kept("Library/Messages", 4, "메시지"), kept("Library/Photos", 6, "사진 보관함"), kept("Library/Mail", 1, "메일"),
        kept("Documents/big", 50, "문서"), kept("Library/Mobile Documents", 7, "iCloud"),
        finding("Library/Logs", std::nullopt, Grade::review)}},
      {"reconcile-overshoot.txt", 20.0,
       {finding("Library/Caches", 15'000'000'000, Grade::safe), finding(".cache", 9'500'000'000, Grade::review)}},
      {"reconcile-exact.txt", 12.5, {finding("Library/Caches", 12'500'000'000, Grade::safe)}},
      // Safe plus kept is all there is: the review figure must not read -0.0.
      {"reconcile-nothing-review.txt", 300.0,
       {finding("Library/Caches", 108'800'000'000, Grade::safe), kept("Library/Photos", 163.1, "사진")}},
      {"reconcile-zero-figure.txt", 0.0, {}},
  };
  for (const auto& [file, figure, findings] : cases) {
    std::string text;
    for (const auto& line : reconcile(withFindings(findings), figure)) text += line + "\n";
    EXPECT_EQ(text, golden(file)) << file;
  }
}

TEST(Ledger, PhantomTriageNeedsBigRemainderAndLowCoverage) {
  const std::tuple<double, int64_t, bool> cases[] = {
      {50.0, 20'000'000'000, true},    // remainder exactly 30.0 counts
      {49.9, 20'000'000'000, false},   // remainder 29.9
      {100.0, 60'000'000'000, false},  // coverage exactly 60 % does not
      {100.0, 59'900'000'000, true},
  };
  for (const auto& [figure, identified, shows] : cases) {
    const auto lines = reconcile(withFindings({finding("Library/X", identified, Grade::review)}), figure);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), std::string(phantomTriageNote)), shows ? 1 : 0)
        << figure << " " << identified;
  }
}

// The note's words are pinned by markdown-full.md; here only where it starts.
TEST(Ledger, ICloudNoteFromFiveGigabytes) {
  const std::string icloud = "Library/Mobile Documents";
  EXPECT_EQ(icloudNote(withFindings({finding(icloud, 4'999'999'999, Grade::never)})), std::nullopt);
  EXPECT_EQ(icloudNote(withFindings({finding(icloud + "/x", 9'000'000'000, Grade::never)})), std::nullopt);
  EXPECT_NE(icloudNote(withFindings({finding(icloud, 5'000'000'000, Grade::never)})), std::nullopt);
}

// With a figure, and without the settings' used figure, the sheet is pinned by the Markdown
// golden files; without a figure, and with one larger than the used space, it is not.
TEST(Ledger, BalanceSheetWithoutAFigureOrWithOneTooLarge) {
  DeepScanResult r;
  r.diskUsedSettingsBytes = 500'000'000'000;
  EXPECT_EQ(balanceSheet(r, std::nullopt),
            (Lines{"내 맥 저장공간 정산 — 총 사용량 500.0GB (설정 기준, 근사)",
                   "└─ '시스템 데이터' 규모는 설정 > 일반 > 저장 공간에서 확인해 다음 스캔에 입력하세요"}));
  EXPECT_EQ(balanceSheet(r, 600.0)[1], "├─ 애플 카테고리 합계: 0.0GB (문서·응용 프로그램·사진·macOS 등)");
}

// Balance sheet, iCloud note, phantom triage, text report and the JSON appendix in one file.
std::string fullMarkdown() {
  DeepScanResult r = withFindings({
      finding("Library/Caches", 9'000'000'000, Grade::safe, "앱이 다시 만드는 캐시", "앱을 닫고 지우세요", "앱 캐시"),
      finding("Library/Mobile Documents", 6'000'000'000, Grade::never, "iCloud Drive 로컬 사본", "", "iCloud Drive"),
      finding("Library/Application Support/한글 폴더", 700'000'000, Grade::unknown, "분류되지 않은 폴더", "", "미분류"),
      finding("/private/var/folders", std::nullopt, Grade::review, "시스템 임시 폴더", "재부팅하면 줄어듭니다",
              "임시 파일"),
      finding("Documents", 30'000'000'000, Grade::never, "사용자 문서", "", "문서"),
  });
  r.diskTotalBytes = 494'384'795'648;
  r.diskFreeBytes = 94'384'795'648;
  r.diskUsedSettingsBytes = 400'000'000'000;
  return renderMarkdown(r, 120.0, 12.4, "2024-03-05", "") + "\n";
}

TEST(MarkdownReport, WholeFile) {
  EXPECT_EQ(fullMarkdown(), golden("markdown-full.md"));
  EXPECT_EQ(renderMarkdown(DeepScanResult{}, std::nullopt, std::nullopt, "2024-03-05", "") + "\n",
            golden("markdown-minimal.md"));
}

// Numbers must read with a point whatever region the user's machine is set to.
TEST(MarkdownReport, NumbersKeepThePointUnderAGermanLocale) {
  std::locale german;
  try { german = std::locale("de_DE.UTF-8"); } catch (const std::runtime_error&) { GTEST_SKIP() << "no de_DE.UTF-8"; }
  const std::locale saved = std::locale::global(german);  // sets the C locale too
  const std::string md = fullMarkdown();
  std::locale::global(saved);
  EXPECT_EQ(md, golden("markdown-full.md"));
}

TEST(MarkdownReport, JsonEscape) {
  const std::pair<std::string, std::string> cases[] = {
      {"a\"b\\c", R"("a\"b\\c")"},
      {"a\tb\nc", R"("a\tb\nc")"},
      {std::string("\x01\x1f\0", 3), R"("\u0001\u001f\u0000")"},
      // A Linux file name may hold bytes that are no UTF-8; the appendix must still parse.
      {"a\xff" "b", "\"a\xef\xbf\xbd" "b\""},
  };
  for (const auto& [text, escaped] : cases) {
    EXPECT_EQ(jsonEscape(text), escaped) << text;
    EXPECT_TRUE(nlohmann::json::accept(escaped)) << text;
  }
}

TEST(MarkdownReport, WriteReplacesTheSameDayAndFailsOnALockedFolder) {
  test::TempDir tmp;
  const fs::path folder = tmp / "Desktop/보고서";
  const fs::path first = writeReportFile("첫 번째", folder, "2024-03-05");
  EXPECT_EQ(first, folder / "Vorlan-리포트-2024-03-05.md");
  EXPECT_EQ(writeReportFile("두 번째", folder, "2024-03-05"), first);
  EXPECT_EQ(test::readFile(first), "두 번째");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);  // no temporary left

  if (test::runningAsRoot()) GTEST_SKIP() << "root ignores folder permissions";
  const fs::path locked = tmp / "locked";
  fs::create_directory(locked);
  ::chmod(locked.c_str(), 0555);
  EXPECT_THROW(writeReportFile("r", locked, "2024-03-05"), std::system_error);
  EXPECT_TRUE(fs::is_empty(locked));
}

TEST(TextReport, FullReportLayout) {
  DeepScanResult r = withFindings({
      // Exactly at the minimum is listed, a byte below is not, nor is an unsized finding.
      finding("Library/Caches", 8'000'000'000, Grade::safe, "앱 캐시", "앱을 닫고 지우세요"),
      finding("Library/Developer/Xcode/DerivedData", 8'000'000'000, Grade::safe, "Xcode 빌드 산출물"),
      finding("/Library/Updates", listedFrom, Grade::review, "대기 중인 업데이트"),
      finding(".npm", listedFrom - 1, Grade::safe, "npm 캐시"),
      finding("Library/Containers/com.docker.docker", 1'234'567'890'123, Grade::never, "Docker 디스크 이미지",
              "Docker 앱 안에서 정리하세요"),
      finding("Movies/Big", 12'345'678'901'234, Grade::unknown, "분류되지 않은 폴더"),
      finding("Library/Application Support/Code", std::nullopt, Grade::review, "편집기 데이터"),
      finding("Library/Caches/Homebrew", 2'500'000'000, Grade::review, "Homebrew 다운로드", "brew cleanup 으로 정리"),
  });
  r.diskTotalBytes = 494'384'795'648;
  r.diskFreeBytes = 61'234'567'890;
  r.runningContainers = 2;
  r.snapshots = {"com.apple.TimeMachine.2024-03-01-101010.local", "com.apple.TimeMachine.2024-03-02-101010.local"};
  r.cleanupTotals = {{"Library/Caches/Homebrew", {1'200'000'000, 0}}, {"Library/Caches", {0, 300'000'000}},
                     {"Library/Developer/Xcode/DerivedData", {0, 0}},
                     {"~/Library/Caches/Homebrew", {9'000'000'000, 0}}};
  EXPECT_EQ(renderReport(r, listedFrom, "") + "\n", golden("report-full.txt"));
}

TEST(TextReport, NothingListedStillGivesTotalsAndTheContactLine) {
  DeepScanResult r = withFindings({finding(".npm", listedFrom - 1, Grade::safe, "npm 캐시")});
  r.runningContainers = 0;  // no warning line for zero containers
  EXPECT_EQ(renderReport(r, listedFrom, "help@example.com") + "\n", golden("report-empty-with-contact.txt"));
}

}  // namespace
}  // namespace vorlan

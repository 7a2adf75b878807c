#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <locale>

#include "report/MarkdownReport.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;

std::string golden(const std::string& name) {
  return test::readFile(fs::path(VORLAN_SOURCE_DIR) / "tests/report/golden" / name);
}

Finding finding(std::string path, std::optional<int64_t> size, std::string category, Grade grade,
                std::string note, std::string hint = "") {
  return {std::move(path), size, std::move(category), grade, std::move(note), std::move(hint)};
}

// Balance sheet, iCloud note, phantom triage, text report and the JSON appendix in one file.
std::string fullMarkdown() {
  DeepScanResult r;
  r.diskTotalBytes = 494'384'795'648;
  r.diskFreeBytes = 94'384'795'648;
  r.diskUsedSettingsBytes = 400'000'000'000;
  r.findings = {
      finding("Library/Caches", 9'000'000'000, "앱 캐시", Grade::safe, "앱이 다시 만드는 캐시",
              "앱을 닫고 지우세요"),
      finding("Library/Mobile Documents", 6'000'000'000, "iCloud Drive", Grade::never,
              "iCloud Drive 로컬 사본"),
      finding("Library/Application Support/한글 폴더", 700'000'000, "미분류", Grade::unknown,
              "분류되지 않은 폴더"),
      finding("/private/var/folders", std::nullopt, "임시 파일", Grade::review, "시스템 임시 폴더",
              "재부팅하면 줄어듭니다"),
      finding("Documents", 30'000'000'000, "문서", Grade::never, "사용자 문서"),
  };
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
      {"Library/한글 폴더", "\"Library/한글 폴더\""},
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

}  // namespace
}  // namespace vorlan

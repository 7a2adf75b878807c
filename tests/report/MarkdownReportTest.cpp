#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <locale>
#include <sstream>

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

DeepScanResult fullResult() {
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
  return r;
}

std::string appendixOf(const std::string& markdown) {
  const auto begin = markdown.find("```json\n") + 8;
  return markdown.substr(begin, markdown.rfind("\n```") - begin);
}

TEST(MarkdownReport, WholeFile) {
  const std::string md = renderMarkdown(fullResult(), 120.0, 12.4, "2024-03-05", "");
  EXPECT_EQ(md + "\n", golden("markdown-full.md"));
  const auto json = nlohmann::json::parse(appendixOf(md));
  EXPECT_EQ(json["findings"].size(), 5u);
  EXPECT_TRUE(json["findings"][3]["size_bytes"].is_null());

  EXPECT_EQ(renderMarkdown(DeepScanResult{}, std::nullopt, std::nullopt, "2024-03-05", "") + "\n",
            golden("markdown-minimal.md"));
}

TEST(MarkdownReport, StatedFigureWithoutSettingsTotalShowsOnlyTheReconciliation) {
  auto r = fullResult();
  r.diskUsedSettingsBytes.reset();
  const std::string md = renderMarkdown(r, 120.0, std::nullopt, "2024-03-05", "");
  EXPECT_EQ(md.find("내 맥 저장공간 정산"), std::string::npos);
  EXPECT_NE(md.find("```\n설정이 말하는 시스템 데이터: 120.0GB\n"), std::string::npos);
  EXPECT_EQ(md.find("스캔 소요"), std::string::npos);
}

TEST(MarkdownReport, JsonEscape) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain", "\"plain\""},
      {"a\"b", "\"a\\\"b\""},
      {"a\\b", "\"a\\\\b\""},
      {"a\tb\nc\rd", "\"a\\tb\\nc\\rd\""},
      {std::string("\x01\x1f", 2), "\"\\u0001\\u001f\""},
      {std::string("a\0b", 3), "\"a\\u0000b\""},
      {"\x7f", "\"\x7f\""},
      {"Library/한글 폴더", "\"Library/한글 폴더\""},
      {"\xf0\x9f\x93\x81", "\"\xf0\x9f\x93\x81\""},
      // Bytes that are no UTF-8 (a lone byte, a cut-off sequence, an encoded surrogate).
      {"a\xff" "b", "\"a\xef\xbf\xbd" "b\""},
      {"\xed\x95", "\"\xef\xbf\xbd\xef\xbf\xbd\""},
      {"\xed\xa0\x80", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},
  };
  for (const auto& [text, escaped] : cases) {
    EXPECT_EQ(jsonEscape(text), escaped) << text;
    EXPECT_TRUE(nlohmann::json::accept(escaped)) << text;
  }
}

TEST(MarkdownReport, StatedFigureReadsBackExactly) {
  const std::pair<double, const char*> cases[] = {
      {120.0, "120.0"}, {97.5, "97.5"},          {0.1, "0.1"},     {0.0, "0.0"},
      {1e16, "1.0e+16"}, {1.5e-7, "1.5e-07"},    {123456.789, "123456.789"},
      {1e15, "1000000000000000.0"},
  };
  for (const auto& [figure, text] : cases) {
    const std::string json = jsonAppendix(DeepScanResult{}, figure);
    EXPECT_NE(json.find(std::string("\"system_data_gb_manual\": ") + text + ",\n"), std::string::npos)
        << json;
    EXPECT_EQ(nlohmann::json::parse(json)["system_data_gb_manual"].get<double>(), figure) << text;
  }
  EXPECT_TRUE(nlohmann::json::parse(jsonAppendix(DeepScanResult{}, HUGE_VAL))["system_data_gb_manual"]
                  .is_null());
}

// Numbers must read with a point whatever region the user's machine is set to.
class CommaLocale {
 public:
  struct CommaPoint : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
  };
  CommaLocale() : savedCpp_(std::locale::global(std::locale(std::locale::classic(), new CommaPoint))) {
    savedC_ = std::setlocale(LC_ALL, nullptr);
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "ru_RU.UTF-8", "nl_NL.UTF-8"})
      if (std::setlocale(LC_ALL, name) && *std::localeconv()->decimal_point == ',') {
        cLocaleSet_ = true;
        break;
      }
    if (!cLocaleSet_) std::setlocale(LC_ALL, savedC_.c_str());
  }
  ~CommaLocale() {
    std::locale::global(savedCpp_);
    std::setlocale(LC_ALL, savedC_.c_str());
  }
  bool cLocaleSet() const { return cLocaleSet_; }

 private:
  std::locale savedCpp_;
  std::string savedC_;
  bool cLocaleSet_ = false;
};

TEST(MarkdownReport, NumbersKeepThePointUnderACommaLocale) {
  CommaLocale comma;
  std::ostringstream probe;
  probe << 1.5;
  ASSERT_EQ(probe.str(), "1,5");  // the C++ side really uses a comma now
  EXPECT_EQ(renderMarkdown(fullResult(), 120.0, 12.4, "2024-03-05", "") + "\n",
            golden("markdown-full.md"));
}

TEST(MarkdownReport, NumbersKeepThePointUnderACommaCLocale) {
  CommaLocale comma;
  if (!comma.cLocaleSet()) GTEST_SKIP() << "no locale with a decimal comma is installed for C";
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "%.1f", 1.5);
  ASSERT_STREQ(buffer, "1,5");
  EXPECT_EQ(renderMarkdown(fullResult(), 120.0, 12.4, "2024-03-05", "") + "\n",
            golden("markdown-full.md"));
}

class TimeZone {
 public:
  explicit TimeZone(const char* tz) {
    if (const char* old = std::getenv("TZ")) saved_ = old;
    ::setenv("TZ", tz, 1);
    ::tzset();
  }
  ~TimeZone() {
    if (saved_) ::setenv("TZ", saved_->c_str(), 1); else ::unsetenv("TZ");
    ::tzset();
  }

 private:
  std::optional<std::string> saved_;
};

TEST(MarkdownReport, TodayIsInTheMachinesTimeZone) {
  constexpr int64_t midnightUtc = 1'709'596'800;  // 2024-03-05 00:00:00 UTC
  {
    TimeZone utc("UTC0");
    EXPECT_EQ(isoToday(midnightUtc), "2024-03-05");
    EXPECT_EQ(isoToday(midnightUtc - 1), "2024-03-04");
  }
  TimeZone seoul("KST-9");
  EXPECT_EQ(isoToday(midnightUtc - 9 * 3600), "2024-03-05");
  EXPECT_EQ(isoToday(midnightUtc - 9 * 3600 - 1), "2024-03-04");
}

TEST(MarkdownReport, WriteCreatesFoldersAndReplacesTheSameDay) {
  test::TempDir tmp;
  const fs::path folder = tmp / "Desktop/보고서";
  const fs::path first = writeReportFile("첫 번째", folder, "2024-03-05");
  EXPECT_EQ(first, folder / "Vorlan-리포트-2024-03-05.md");
  EXPECT_EQ(test::readFile(first), "첫 번째");
  EXPECT_EQ(writeReportFile("두 번째", folder, "2024-03-05"), first);
  EXPECT_EQ(test::readFile(first), "두 번째");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
}

TEST(MarkdownReport, WriteFailsWithTheFileSystemsErrorAndLeavesNothingBehind) {
  test::TempDir tmp;
  test::writeFile(tmp / "file", "x");
  EXPECT_THROW(writeReportFile("r", tmp / "file/sub", "2024-03-05"), fs::filesystem_error);

  // The report's name is taken by a folder with something in it: the final rename fails.
  const fs::path taken = tmp / "taken";
  test::writeFile(taken / "Vorlan-리포트-2024-03-05.md/keep", "k");
  EXPECT_THROW(writeReportFile("r", taken, "2024-03-05"), std::system_error);
  EXPECT_EQ(std::distance(fs::directory_iterator(taken), fs::directory_iterator()), 1);
  EXPECT_EQ(test::readFile(taken / "Vorlan-리포트-2024-03-05.md/keep"), "k");

  if (test::runningAsRoot()) GTEST_SKIP() << "root ignores folder permissions";
  const fs::path locked = tmp / "locked";
  fs::create_directory(locked);
  ::chmod(locked.c_str(), 0555);
  EXPECT_THROW(writeReportFile("r", locked, "2024-03-05"), std::system_error);
  EXPECT_TRUE(fs::is_empty(locked));
}

}  // namespace
}  // namespace vorlan

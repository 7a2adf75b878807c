#include <gtest/gtest.h>

#include <fmt/format.h>

#include <filesystem>

#include "Cancelled.hpp"
#include "platform/VolumeFigures.hpp"
#include "scan/Classification.hpp"
#include "scan/DeepScanner.hpp"
#include "support/ScriptedToolRunner.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

using test::ScriptedToolRunner;
using Args = std::vector<std::string>;
namespace fs = std::filesystem;

const std::string permissionDenied = "du: cannot read directory 'x': Permission denied\n";
const Args docker{"docker", "ps", "-q"}, tmutil{"tmutil", "listlocalsnapshots", "/"},
    diskutil{"diskutil", "apfs", "listSnapshots", "/"};

// A temporary home whose name has a blank and Korean in it.
class DeepScannerTest : public ::testing::Test {
 protected:
  DeepScannerTest() : home(tmp / "홈 폴더") { fs::create_directories(home); }

  std::string abs(const std::string& rel) const { return home.string() + "/" + rel; }
  // One line as du prints it; "" stands for the home folder itself.
  std::string duLine(int64_t kb, const std::string& rel) const {
    return fmt::format("{}\t{}\n", kb, rel.empty() ? home.string() : abs(rel));
  }
  Args du0(const std::string& rel) const { return {"du", "-xk", "-d", "0", abs(rel)}; }
  Args homeSweep() const { return {"du", "-xk", "-d", "1", home.string()}; }
  Args librarySweep() const { return {"du", "-xk", "-d", "1", abs("Library")}; }

  test::TempDir tmp;
  fs::path home;
  ScriptedToolRunner runner;
};

Finding finding(std::string path, std::optional<int64_t> size, bool installed = true) {
  return classify(path, size, [installed](const std::string&) { return installed; });
}

TEST_F(DeepScannerTest, WholeScanMeasuresRulesSweepsTheRestAndProbes) {
  const char* rows[] = {".ollama", ".cache/huggingface", "Library/Caches", ".cache", "Library/Application Support",
                        "Library/Application Support/MobileSync/Backup", "Documents"};
  for (const char* row : rows) fs::create_directories(home / row);
  const int64_t sizes[] = {2048, 1000, 500, 3000, 100, 40};
  for (int i = 0; i < 6; ++i) runner.script(du0(rows[i]), duLine(sizes[i], rows[i]), i == 2 ? 1 : 0, permissionDenied);
  runner.scriptNotFound(du0("Documents"));
  const std::string homeOut = duLine(3000, ".cache") + duLine(2048, ".ollama") + duLine(700, "Projects") +
                              duLine(5, "사진 모음") + duLine(9, ".vorlan") + duLine(12, ".vorlanx") +
                              duLine(8, "Library Backup") + duLine(99999, "Library") + "garbage\n" +
                              "1\t/elsewhere/x\n" + duLine(110000, "") + duLine(3, "Documents");
  runner.script(homeSweep(), homeOut, 1, permissionDenied);
  const std::string libraryOut = duLine(500, "Library/Caches") + duLine(100, "Library/Application Support") +
                                 duLine(7, "Library/Application Scripts") + duLine(3, "Library/.vorlan") +
                                 duLine(4, "Library/Containers") + duLine(99999, "Library");
  runner.script(librarySweep(), libraryOut);
  runner.script(docker, "abc\n\ndef\n \t\n123\n");
  runner.script(tmutil, "Snapshots for disk /:\ncom.apple.TimeMachine.1.local\n");
  runner.script(diskutil, "+-- X\n   Name:   com.apple.TimeMachine.1.local\n   XID:  4\n   Name:   snap-a\n");

  std::stop_source source;
  std::vector<ScanProgress> reports;
  DeepScanResult result = DeepScanner(runner, home, [](const std::string&) { return false; }, ScanEngine::du)
                              .collect([&](const ScanProgress& p) { reports.push_back(p); }, source.get_token());

  const int64_t k = 1024;
  const auto lessChildren = [](Finding f) { f.note += subtractedNoteSuffix; return f; };
  const std::vector<Finding> expected{
      finding(".ollama", 2048 * k, false),  // its tool is gone: safe
      finding(".cache/huggingface", 1000 * k), finding("Library/Caches", 500 * k),  // du's exit 1 still counts
      lessChildren(finding(".cache", 2000 * k)), lessChildren(finding("Library/Application Support", 60 * k)),
      finding("Library/Application Support/MobileSync/Backup", 40 * k),
      finding("Documents", std::nullopt), finding("Projects", 700 * k), finding("사진 모음", 5 * k),
      finding(".vorlanx", 12 * k), finding("Library Backup", 8 * k), finding("Library/Application Scripts", 7 * k),
      finding("Library/.vorlan", 3 * k), finding("Library/Containers", 4 * k),
  };
  EXPECT_EQ(result.findings, expected);
  EXPECT_EQ(result.runningContainers, 3);
  EXPECT_EQ(result.snapshots, (std::vector<std::string>{"com.apple.TimeMachine.1.local", "snap-a"}));
  EXPECT_EQ(result.diskTotalBytes, diskUsage("/").total);

  // Tools strictly in order, each with the scan's stop token so Ctrl-C reaches a running du.
  std::vector<Args> expectedCalls;
  for (const char* row : rows) expectedCalls.push_back(du0(row));
  expectedCalls.insert(expectedCalls.end(), {homeSweep(), librarySweep(), docker, tmutil, diskutil});
  EXPECT_EQ(runner.callArguments(), expectedCalls);
  for (const auto& call : runner.calls()) {
    EXPECT_TRUE(call.stop == source.get_token()) << call.arguments[0];
    EXPECT_EQ(call.streaming, call.arguments[0] == "du" && call.arguments[3] == "1");
    EXPECT_EQ(call.timeout, call.arguments == docker ? std::optional<double>(10.0) : std::nullopt);
  }

  const std::string rule(ScanMessages::rulePhase), sweep(ScanMessages::homePhase);
  std::vector<ScanProgress> expectedReports{{1, rule, {}, {}}};
  for (int i = 0; i < 7; ++i) expectedReports.push_back({1, rule, "~/" + std::string(rows[i]), i / 7.0});
  expectedReports.push_back({2, sweep, {}, {}});
  for (const std::string& out : {homeOut, libraryOut})
    for (size_t start = 0, end; (end = out.find('\n', start)) != std::string::npos; start = end + 1)
      if (auto tab = out.find('\t', start); tab < end)
        expectedReports.push_back({2, sweep, out.substr(tab + 1, end - tab - 1), {}});
  expectedReports.push_back({3, std::string(ScanMessages::probePhase), {}, {}});
  EXPECT_EQ(reports, expectedReports);
}

TEST_F(DeepScannerTest, MissingOrFailingToolsOnlyLeaveGaps) {
  for (const char* dir : {".cache", "Library/Caches"}) fs::create_directories(home / dir);
  const auto gap = [](const char* path) { return finding(path, std::nullopt); };
  struct Case {
    const char* name;
    std::vector<std::pair<Args, ScriptedToolRunner::Outcome>> scripts;
    std::vector<Finding> expected;
  };
  const Case cases[] = {
      // Without the home sweep, Library is not swept on its own either.
      {"home sweep missing, docker down",
       {{du0(".cache"), ToolResult{0, duLine(2, ".cache"), ""}}, {homeSweep(), ToolError::notFound("du")},
        {librarySweep(), ToolResult{0, duLine(1, "Library/x"), ""}}, {docker, ToolResult{1, "1\n", "no daemon"}}},
       {gap("Library/Caches"), finding(".cache", 2048)}},
      {"library sweep and probes fail, home findings stand",
       {{homeSweep(), ToolResult{1, duLine(1, "x") + duLine(1, "Library"), permissionDenied}},
        {librarySweep(), ToolError::timeout(librarySweep())}, {docker, ToolError::timeout(docker)},
        {tmutil, ToolResult{1, "com.apple.TimeMachine.1.local\n", ""}}, {diskutil, ToolResult{64, "Name: a\n", ""}}},
       {gap("Library/Caches"), gap(".cache"), finding("x", 1024)}},
  };
  for (const auto& c : cases) {
    ScriptedToolRunner r;
    // Any other du cannot even be started; the other tools are not installed.
    r.scriptFallback([](const Args& a) -> ScriptedToolRunner::Outcome {
      if (a[0] == "du") throw std::system_error(std::make_error_code(std::errc::too_many_files_open));
      return ToolError::notFound(a[0]);
    });
    for (const auto& [arguments, outcome] : c.scripts) r.script(arguments, outcome);
    DeepScanResult result = DeepScanner(r, home, {}, ScanEngine::du).collect({});
    EXPECT_EQ(result.findings, c.expected) << c.name;
    EXPECT_TRUE(!result.runningContainers && result.snapshots.empty()) << c.name;
  }
}

TEST_F(DeepScannerTest, CoveredPathsStayOutOfDiscoveryAtSlashBorders) {
  const std::vector<std::string> covered{"Library/Application Support/MobileSync/Backup", "Library/Caches",
                                         "/System/Library/AssetsV2"};
  // Application Support holds a measured rule path: its figure would count those bytes twice.
  runner.script(librarySweep(), duLine(9, "Library/Application Support") + duLine(5, "Library/Caches") +
                                    duLine(2, "Library/Application Scripts") + duLine(1, "Library/Cachesfoo"));
  EXPECT_EQ(DeepScanner(runner, home, {}, ScanEngine::du).libraryDiscoveryFindings(covered, {}),
            (std::vector<Finding>{finding("Library/Application Scripts", 2048), finding("Library/Cachesfoo", 1024)}));
}

TEST_F(DeepScannerTest, CancellationEndsTheScanAtItsCheckPoints) {
  for (const char* dir : {".cache", ".npm", "Documents"}) fs::create_directories(home / dir);
  // The stop is requested at the call that stopAtCall picks, or at report number stopAtReport.
  struct Case { const char* name; std::function<bool(const ScriptedToolRunner::Call&)> stopAtCall;
                std::optional<size_t> stopAtReport; size_t expectedCalls; };
  const Case cases[] = {
      {"before anything", {}, 0, 0},
      {"at the second rule row", {}, 2, 2},
      {"while the home sweep runs", [&](const auto& c) { return c.arguments == homeSweep(); }, {}, 4},
      {"while docker runs", [](const auto& c) { return c.arguments == docker; }, {}, 8},
  };
  for (const auto& c : cases) {
    ScriptedToolRunner r;
    r.scriptFallback([](const Args&) { return ToolResult{0, "", ""}; });
    std::stop_source source;
    if (c.stopAtCall) r.onCall([&](const auto& call) { if (c.stopAtCall(call)) source.request_stop(); });
    size_t seen = 0;
    ProgressCallback progress = [&](const ScanProgress&) {
      if (c.stopAtReport && seen++ == *c.stopAtReport) source.request_stop();
    };
    EXPECT_THROW(DeepScanner(r, home, {}, ScanEngine::du).collect(progress, source.get_token()), Cancelled) << c.name;
    EXPECT_EQ(r.calls().size(), c.expectedCalls) << c.name;
  }
}

}  // namespace
}  // namespace vorlan

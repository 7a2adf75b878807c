#include <gtest/gtest.h>

#include <fmt/format.h>

#include <filesystem>
#include <mutex>

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

// A temporary home whose name has a blank and Korean in it, with a recording progress sink.
class DeepScannerTest : public ::testing::Test {
 protected:
  DeepScannerTest() : home(tmp / "홈 폴더") { fs::create_directories(home); }

  void makeDirs(std::initializer_list<const char*> relatives) {
    for (const char* rel : relatives) fs::create_directories(home / rel);
  }
  std::string abs(const std::string& rel) const { return home.string() + "/" + rel; }
  // One line as du prints it.
  std::string duLine(int64_t kb, const std::string& rel) const {
    return fmt::format("{}\t{}\n", kb, rel.empty() ? home.string() : abs(rel));
  }
  static Args du0(const std::string& path) { return {"du", "-xk", "-d", "0", path}; }
  Args homeSweep() const { return {"du", "-xk", "-d", "1", home.string()}; }
  Args librarySweep() const { return {"du", "-xk", "-d", "1", abs("Library")}; }

  ProgressCallback recorder() {
    return [this](const ScanProgress& p) {
      std::lock_guard lock(progressMutex);
      reports.push_back(p);
    };
  }
  DeepScanner scanner(bool toolsInstalled = true) {
    return DeepScanner(runner, home, [toolsInstalled](const std::string&) { return toolsInstalled; });
  }

  test::TempDir tmp;
  fs::path home;
  ScriptedToolRunner runner;
  std::mutex progressMutex;
  std::vector<ScanProgress> reports;
};

Finding finding(std::string path, std::optional<int64_t> size, bool installed = true) {
  return classify(path, size, [installed](const std::string&) { return installed; });
}

ScanProgress sweepLine(std::string detail) {
  return ScanProgress{2, std::string(ScanMessages::homePhase), std::move(detail), std::nullopt};
}

TEST_F(DeepScannerTest, WholeScanMeasuresRulesSweepsTheRestAndProbes) {
  makeDirs({".ollama", ".cache/huggingface", "Library/Caches", "Library/Application Support/MobileSync/Backup",
            "Documents", ".vorlan/quarantine"});
  runner.script(du0(abs(".ollama")), duLine(2048, ".ollama"));
  runner.script(du0(abs(".cache/huggingface")), duLine(1000, ".cache/huggingface"));
  runner.script(du0(abs("Library/Caches")), duLine(500, "Library/Caches"), 1, permissionDenied);
  runner.script(du0(abs(".cache")), duLine(3000, ".cache"));
  runner.script(du0(abs("Library/Application Support")), duLine(100, "Library/Application Support"));
  runner.script(du0(abs("Library/Application Support/MobileSync/Backup")),
                duLine(40, "Library/Application Support/MobileSync/Backup"));
  runner.scriptNotFound(du0(abs("Documents")));
  const std::string homeOut = duLine(3000, ".cache") + duLine(2048, ".ollama") + duLine(700, "Projects") +
                              duLine(5, "사진 모음") + duLine(9, ".vorlan") + duLine(12, ".vorlanx") +
                              duLine(8, "Library Backup") + duLine(99999, "Library") + "garbage\n" +
                              "1\t/elsewhere/x\n" + duLine(110000, "") + duLine(3, "Documents");
  runner.script(homeSweep(), homeOut, 1, permissionDenied);
  const std::string libraryOut = duLine(500, "Library/Caches") + duLine(100, "Library/Application Support") +
                                 duLine(7, "Library/Application Scripts") + duLine(3, "Library/.vorlan") +
                                 duLine(4, "Library/Containers") + duLine(99999, "Library");
  runner.script(librarySweep(), libraryOut);
  runner.script({"docker", "ps", "-q"}, "abc\n\ndef\n \t\n123\n");
  runner.scriptNotFound({"tmutil", "listlocalsnapshots", "/"});
  runner.script({"diskutil", "apfs", "listSnapshots", "/"}, "   Name:   snap-a\n   XID:  4\n");

  std::stop_source source;
  DeepScanResult result = scanner(false).collect(recorder(), source.get_token());

  const int64_t k = 1024;
  const std::string minus = std::string(subtractedNoteSuffix);
  Finding cache = finding(".cache", 2000 * k);
  cache.note += minus;
  Finding support = finding("Library/Application Support", 60 * k);
  support.note += minus;
  const std::vector<Finding> expected{
      finding(".ollama", 2048 * k, false),  // its tool is gone: safe
      finding(".cache/huggingface", 1000 * k),
      finding("Library/Caches", 500 * k),  // du's exit 1 still counts
      cache,
      support,
      finding("Library/Application Support/MobileSync/Backup", 40 * k),
      finding("Documents", std::nullopt),
      finding("Projects", 700 * k),
      finding("사진 모음", 5 * k),
      finding(".vorlanx", 12 * k),
      finding("Library Backup", 8 * k),
      finding("Library/Application Scripts", 7 * k),
      finding("Library/.vorlan", 3 * k),
      finding("Library/Containers", 4 * k),
  };
  EXPECT_EQ(result.findings, expected);
  EXPECT_EQ(result.findings[0].grade, Grade::safe);
  EXPECT_EQ(result.runningContainers, 3);
  EXPECT_EQ(result.snapshots, (std::vector<std::string>{"snap-a"}));
  EXPECT_EQ(result.diskTotalBytes, diskUsage("/").total);
  EXPECT_GT(result.diskTotalBytes, 0);
  EXPECT_TRUE(result.diskUsedSettingsBytes.has_value());
  EXPECT_TRUE(result.cleanupTotals.empty());

  // Tools strictly in order, each with the scan's stop token so Ctrl-C reaches a running du.
  const std::vector<Args> expectedCalls{
      du0(abs(".ollama")), du0(abs(".cache/huggingface")), du0(abs("Library/Caches")), du0(abs(".cache")),
      du0(abs("Library/Application Support")), du0(abs("Library/Application Support/MobileSync/Backup")),
      du0(abs("Documents")), homeSweep(), librarySweep(), {"docker", "ps", "-q"},
      {"tmutil", "listlocalsnapshots", "/"}, {"diskutil", "apfs", "listSnapshots", "/"}};
  EXPECT_EQ(runner.callArguments(), expectedCalls);
  for (const auto& call : runner.calls()) {
    EXPECT_TRUE(call.stop == source.get_token()) << call.arguments[0];
    EXPECT_EQ(call.streaming, call.arguments[0] == "du" && call.arguments[3] == "1");
    EXPECT_EQ(call.timeout, call.arguments[0] == "docker" ? std::optional<double>(10.0) : std::nullopt);
  }

  std::vector<ScanProgress> expectedReports{{1, std::string(ScanMessages::rulePhase), {}, {}}};
  const char* rows[] = {".ollama", ".cache/huggingface", "Library/Caches", ".cache",
                        "Library/Application Support", "Library/Application Support/MobileSync/Backup",
                        "Documents"};
  for (int i = 0; i < 7; ++i)
    expectedReports.push_back({1, std::string(ScanMessages::rulePhase), "~/" + std::string(rows[i]), i / 7.0});
  expectedReports.push_back({2, std::string(ScanMessages::homePhase), {}, {}});
  for (const std::string* out : {&homeOut, &libraryOut}) {
    size_t start = 0;
    for (size_t end; (end = out->find('\n', start)) != std::string::npos; start = end + 1) {
      std::string line = out->substr(start, end - start);
      if (auto tab = line.find('\t'); tab != std::string::npos) expectedReports.push_back(sweepLine(line.substr(tab + 1)));
    }
  }
  expectedReports.push_back({3, std::string(ScanMessages::probePhase), {}, {}});
  EXPECT_EQ(reports, expectedReports);
}

TEST_F(DeepScannerTest, EmptyHomeReportsOnlyPhaseOpeningsAndSweepsEverything) {
  runner.script(homeSweep(), duLine(4, "a") + duLine(4, "Library") + duLine(8, ""));
  runner.script(librarySweep(), duLine(4, "Library/Caches") + duLine(4, "Library"));
  DeepScanner s = scanner();
  EXPECT_TRUE(s.rulePathFindings(recorder()).empty());
  ASSERT_TRUE(reports.empty());

  DeepScanResult result = s.collect(recorder());
  EXPECT_EQ(result.findings, (std::vector<Finding>{finding("a", 4096), finding("Library/Caches", 4096)}));
  EXPECT_EQ(reports.front(), (ScanProgress{1, std::string(ScanMessages::rulePhase), {}, {}}));
  EXPECT_EQ(reports[1].phase, 2);
  EXPECT_EQ(result.runningContainers, std::nullopt);
  EXPECT_TRUE(result.snapshots.empty());
}

TEST_F(DeepScannerTest, MissingOrFailingToolsOnlyLeaveGaps) {
  makeDirs({".cache", "Library/Caches"});
  struct Case {
    const char* name;
    std::function<void(ScriptedToolRunner&)> setup;
    std::vector<Finding> expected;
    bool librarySwept;
  };
  const std::vector<Case> cases{
      {"no tool at all", [](ScriptedToolRunner&) {},
       {finding("Library/Caches", std::nullopt), finding(".cache", std::nullopt)}, false},
      {"home sweep missing, rule du answers",
       [&](ScriptedToolRunner& r) {
         r.script(du0(abs(".cache")), duLine(2, ".cache"));
         r.scriptNotFound(homeSweep());
         r.script(librarySweep(), duLine(1, "Library/x"));
       },
       {finding("Library/Caches", std::nullopt), finding(".cache", 2048)}, false},
      {"library sweep fails, home findings stand",
       [&](ScriptedToolRunner& r) {
         r.script(homeSweep(), duLine(1, "x") + duLine(1, "Library"), 1, permissionDenied);
         r.scriptTimeout(librarySweep());
       },
       {finding("Library/Caches", std::nullopt), finding(".cache", std::nullopt), finding("x", 1024)}, true},
      {"launch failure is a gap too",
       [&](ScriptedToolRunner& r) {
         r.scriptFallback([](const Args& a) -> ScriptedToolRunner::Outcome {
           if (a[0] == "du") throw std::system_error(std::make_error_code(std::errc::too_many_files_open));
           return ToolResult{1, "", "error"};
         });
       },
       {finding("Library/Caches", std::nullopt), finding(".cache", std::nullopt)}, false},
  };
  for (const auto& c : cases) {
    ScriptedToolRunner r;
    c.setup(r);
    DeepScanResult result = DeepScanner(r, home, {}).collect({});
    EXPECT_EQ(result.findings, c.expected) << c.name;
    EXPECT_EQ(result.runningContainers, std::nullopt) << c.name;
    EXPECT_TRUE(result.snapshots.empty()) << c.name;
    auto calls = r.callArguments();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), librarySweep()), c.librarySwept ? 1 : 0) << c.name;
  }
}

TEST_F(DeepScannerTest, CoveredPathsStayOutOfDiscoveryAtSlashBorders) {
  const std::vector<std::string> covered{"Library/Application Support/MobileSync/Backup", "Library/Caches",
                                         "/System/Library/AssetsV2"};
  struct Case { const char* path; bool expected; };
  const Case cases[] = {
      {"Library/Application Support", true},   // holds a measured rule path
      {"Library/Application Scripts", false},
      {"Library/Caches", true},
      {"Library/Caches/x", true},
      {"Library/Cachesfoo", false},
      {"Library", true},
      {"System", false},  // an absolute covered path never matches a relative one
  };
  for (const auto& c : cases) EXPECT_EQ(isCovered(c.path, covered), c.expected) << c.path;

  runner.script(librarySweep(), duLine(9, "Library/Application Support") + duLine(2, "Library/Application Scripts") +
                                    duLine(1, "Library/Cachesfoo") + duLine(11, "Library"));
  EXPECT_EQ(scanner().libraryDiscoveryFindings(covered, recorder()),
            (std::vector<Finding>{finding("Library/Application Scripts", 2048),
                                  finding("Library/Cachesfoo", 1024)}));
  EXPECT_EQ(reports.size(), 4u);
}

TEST_F(DeepScannerTest, CancellationEndsTheScanAtItsCheckPoints) {
  makeDirs({".cache", ".npm", "Documents"});
  struct Case {
    const char* name;
    std::function<bool(const ScriptedToolRunner::Call&)> stopAtCall;  // request the stop here
    std::optional<size_t> stopAtReport;
    size_t expectedCalls;
  };
  const Case cases[] = {
      {"before anything", {}, 0, 0},
      {"at the second rule row", {}, 2, 2},
      {"while the home sweep runs", [&](const auto& c) { return c.arguments == homeSweep(); }, {}, 4},
      {"while docker runs", [](const auto& c) { return c.arguments[0] == "docker"; }, {}, 8},
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
    DeepScanner s(r, home, {});
    EXPECT_THROW(s.collect(progress, source.get_token()), Cancelled) << c.name;
    EXPECT_EQ(r.calls().size(), c.expectedCalls) << c.name;
  }
}

TEST_F(DeepScannerTest, ContainerCount) {
  struct Case {
    const char* name;
    std::optional<ScriptedToolRunner::Outcome> outcome;
    std::optional<int64_t> expected;
  };
  const Case cases[] = {
      {"three ids among blank lines", ToolResult{0, "a1\n\n  b2\nc3\n\t\n", ""}, 3},
      {"none running", ToolResult{0, "", ""}, 0},
      {"daemon down", ToolResult{1, "", "Cannot connect to the Docker daemon\n"}, std::nullopt},
      {"not installed", std::nullopt, std::nullopt},
      {"too slow", ToolError::timeout({"docker", "ps", "-q"}), std::nullopt},
  };
  for (const auto& c : cases) {
    ScriptedToolRunner r;
    if (c.outcome) r.script({"docker", "ps", "-q"}, *c.outcome);
    EXPECT_EQ(DeepScanner(r, home, {}).runningContainers(), c.expected) << c.name;
    ASSERT_EQ(r.calls().size(), 1u);
    EXPECT_EQ(r.calls()[0].timeout, 10.0);
  }
}

TEST_F(DeepScannerTest, SnapshotsFromBothSources) {
  const Args tmutil{"tmutil", "listlocalsnapshots", "/"};
  const Args diskutil{"diskutil", "apfs", "listSnapshots", "/"};
  const std::string tmOut = "Snapshots for disk /:\ncom.apple.TimeMachine.1.local\ncom.apple.TimeMachine.2.local\n";
  const std::string duOut = "+-- X\n    Name:  com.apple.TimeMachine.2.local\n    Name:  com.apple.os.update-A\n";
  struct Case {
    const char* name;
    std::optional<ScriptedToolRunner::Outcome> first, second;
    std::vector<std::string> expected;
  };
  const Case cases[] = {
      {"both", ToolResult{0, tmOut, ""}, ToolResult{0, duOut, ""},
       {"com.apple.TimeMachine.1.local", "com.apple.TimeMachine.2.local", "com.apple.os.update-A"}},
      {"tmutil missing", std::nullopt, ToolResult{0, duOut, ""},
       {"com.apple.TimeMachine.2.local", "com.apple.os.update-A"}},
      {"tmutil fails", ToolResult{1, tmOut, ""}, ToolResult{0, duOut, ""},
       {"com.apple.TimeMachine.2.local", "com.apple.os.update-A"}},
      {"diskutil fails", ToolResult{0, tmOut, ""}, ToolResult{64, duOut, ""},
       {"com.apple.TimeMachine.1.local", "com.apple.TimeMachine.2.local"}},
      {"neither", std::nullopt, std::nullopt, {}},
  };
  for (const auto& c : cases) {
    ScriptedToolRunner r;
    if (c.first) r.script(tmutil, *c.first);
    if (c.second) r.script(diskutil, *c.second);
    EXPECT_EQ(DeepScanner(r, home, {}).snapshots(), c.expected) << c.name;
    EXPECT_EQ(r.callArguments(), (std::vector<Args>{tmutil, diskutil})) << c.name;
  }
}

TEST_F(DeepScannerTest, AbsoluteRulePathsAreMeasuredAsTheyStand) {
  // The absolute rows lie outside any test's reach; the way they are shown is shared.
  EXPECT_EQ(displayPath("/System/Library/AssetsV2"), "/System/Library/AssetsV2");
  runner.script(du0("/System/Library/AssetsV2"), "7\t/System/Library/AssetsV2\n");
  EXPECT_EQ(scanner().du("/System/Library/AssetsV2", 0), (std::vector<DuEntry>{{7168, "/System/Library/AssetsV2"}}));
}

TEST(ScriptedToolRunner, StreamsCompleteLinesOnly) {
  ScriptedToolRunner r;
  r.script({"t"}, "a\n\nb\r\nc");
  std::vector<std::string> lines;
  ToolResult result = r.runStreaming({"t"}, [&](const std::string& l) { lines.push_back(l); });
  EXPECT_EQ(lines, (std::vector<std::string>{"a", "", "b\r"}));
  EXPECT_EQ(result.stdoutText, "a\n\nb\r\nc");
  EXPECT_THROW(r.run({"other"}, std::nullopt), ToolError);
}

}  // namespace
}  // namespace vorlan

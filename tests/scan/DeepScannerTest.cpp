// The deep scan against scripted tools, and its walk engine against the system's own du: the
// same entries for every question and the same whole scan; a stopped walk leaves no thread behind.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <thread>

#include <fmt/format.h>

#include "Cancelled.hpp"
#include "platform/VolumeFigures.hpp"
#include "scan/Classification.hpp"
#include "scan/DeepScanner.hpp"
#include "scan/ProcessToolRunner.hpp"
#include "scan/WalkEngine.hpp"
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

// The home sweep's lines as progress are pinned by AppFlowTest.ProgressFromTheReadingThreadArrivesInOrder.
TEST_F(DeepScannerTest, WholeScanMeasuresRulesSweepsTheRestAndProbes) {
  const char* rows[] = {".ollama", ".cache/huggingface", "Library/Caches", ".cache", "Documents"};
  for (const char* row : rows) fs::create_directories(home / row);
  const int64_t sizes[] = {2048, 1000, 500, 3000};
  for (int i = 0; i < 4; ++i) runner.script(du0(rows[i]), duLine(sizes[i], rows[i]), i == 2 ? 1 : 0, permissionDenied);
  runner.scriptNotFound(du0("Documents"));
  // Left out: what a rule covers, the program's own folder, Library (swept next), the home
  // folder's own line and a line outside it.
  runner.script(homeSweep(),
                duLine(3000, ".cache") + duLine(2048, ".ollama") + duLine(700, "Projects") + duLine(9, ".vorlan") +
                    duLine(8, "Library Backup") + duLine(99999, "Library") + "1\t/elsewhere/x\n" +
                    duLine(110000, "") + duLine(3, "Documents"),
                1, permissionDenied);
  runner.script(librarySweep(), duLine(500, "Library/Caches") + duLine(7, "Library/Application Scripts") +
                                    duLine(99999, "Library"));
  runner.script(docker, "abc\n\ndef\n \t\n123\n");
  runner.script(tmutil, "Snapshots for disk /:\ncom.apple.TimeMachine.1.local\n");
  runner.script(diskutil, "+-- X\n   Name:   com.apple.TimeMachine.1.local\n   XID:  4\n   Name:   snap-a\n");

  std::stop_source source;
  std::vector<ScanProgress> reports;
  DeepScanResult result = DeepScanner(runner, home, [](const std::string&) { return false; }, ScanEngine::du)
                              .collect([&](const ScanProgress& p) { reports.push_back(p); }, source.get_token());
  std::erase_if(reports, [](const ScanProgress& p) { return p.phase == 2 && p.detail; });

  const int64_t k = 1024;
  Finding cache = finding(".cache", 2000 * k);
  cache.note += subtractedNoteSuffix;
  const std::vector<Finding> expected{
      finding(".ollama", 2048 * k, false),  // its tool is gone: safe
      finding(".cache/huggingface", 1000 * k), finding("Library/Caches", 500 * k),  // du's exit 1 still counts
      cache, finding("Documents", std::nullopt), finding("Projects", 700 * k), finding("Library Backup", 8 * k),
      finding("Library/Application Scripts", 7 * k),
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

  const std::string rule(ScanMessages::rulePhase);
  std::vector<ScanProgress> expectedReports{{1, rule, {}, {}}};
  for (int i = 0; i < 5; ++i) expectedReports.push_back({1, rule, "~/" + std::string(rows[i]), i / 5.0});
  expectedReports.push_back({2, std::string(ScanMessages::homePhase), {}, {}});
  expectedReports.push_back({3, std::string(ScanMessages::probePhase), {}, {}});
  EXPECT_EQ(reports, expectedReports);
}

TEST_F(DeepScannerTest, MissingOrFailingToolsOnlyLeaveGaps) {
  for (const char* dir : {".cache", "Library/Caches"}) fs::create_directories(home / dir);
  const auto gap = [](const char* path) { return finding(path, std::nullopt); };
  using Scripts = std::vector<std::pair<Args, ScriptedToolRunner::Outcome>>;
  const std::tuple<const char*, Scripts, std::vector<Finding>> cases[] = {
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
  for (const auto& [name, scripts, expected] : cases) {
    ScriptedToolRunner r;
    // Any other du cannot even be started; the other tools are not installed.
    r.scriptFallback([](const Args& a) -> ScriptedToolRunner::Outcome {
      if (a[0] == "du") throw std::system_error(std::make_error_code(std::errc::too_many_files_open));
      return ToolError::notFound(a[0]);
    });
    for (const auto& [arguments, outcome] : scripts) r.script(arguments, outcome);
    DeepScanResult result = DeepScanner(r, home, {}, ScanEngine::du).collect({});
    EXPECT_EQ(result.findings, expected) << name;
    EXPECT_TRUE(!result.runningContainers && result.snapshots.empty()) << name;
  }
}

// With today's rules every folder that holds a rule path is itself one; this keeps a new rule
// from having its bytes counted twice.
TEST_F(DeepScannerTest, AFolderHoldingAMeasuredPathStaysOutOfDiscovery) {
  runner.script(librarySweep(), duLine(9, "Library/Application Support") + duLine(2, "Library/Application Scripts"));
  EXPECT_EQ(DeepScanner(runner, home, {}, ScanEngine::du)
                .libraryDiscoveryFindings({"Library/Application Support/MobileSync/Backup"}, {}),
            (std::vector<Finding>{finding("Library/Application Scripts", 2048)}));
}

TEST_F(DeepScannerTest, CancellationEndsTheScanAtItsCheckPoints) {
  for (const char* dir : {".cache", ".npm", "Documents"}) fs::create_directories(home / dir);
  // The stop is requested at the call that stopAtCall picks, or at report number stopAtReport.
  const struct { const char* name; std::function<bool(const ScriptedToolRunner::Call&)> stopAtCall;
                std::optional<size_t> stopAtReport; size_t expectedCalls; } cases[] = {
      {"before anything", {}, 0, 0},
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

// The real `du -xk -d DEPTH PATH`, its lines ended by NUL (-0) so that names holding a newline
// come back whole; the figures are those of the plain command.
std::vector<DuEntry> realDu(const std::string& path, int depth) {
  const std::string out =
      test::runProcess({"/usr/bin/env", "du", "-0", "-xk", "-d", std::to_string(depth), path}).out;
  std::vector<DuEntry> entries;
  for (size_t start = 0, end; (end = out.find('\0', start)) != std::string::npos; start = end + 1) {
    const size_t tab = out.find('\t', start);
    entries.push_back({std::stoll(out.substr(start, tab - start)) * 1024, out.substr(tab + 1, end - tab - 1)});
  }
  return entries;
}

size_t threadCount() { return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/task"), {})); }

// One case's folder; a tmpfs mounted in it is unmounted before the folder is removed.
struct Tree {
  fs::path root, mount;
  std::string skip;  // why the case cannot run here
  ~Tree() {
    if (!mount.empty()) ::umount2(mount.c_str(), MNT_DETACH);
  }
  void put(std::initializer_list<std::pair<std::string, int>> files) const {
    for (const auto& [rel, bytes] : files) test::writeFile(root / rel, std::string(static_cast<size_t>(bytes), 'x'));
  }
  void link(const std::string& from, const std::string& to) const {
    fs::create_directories((root / to).parent_path());
    fs::create_hard_link(root / from, root / to);
  }
  void lock(const char* rel, fs::perms perms) {
    fs::permissions(root / rel, perms);
    if (test::runningAsRoot()) skip = "root reads every folder; .ci/run repeats the suite unprivileged";
  }
};

TEST(WalkEngine, AnswersEveryQuestionAsDuPrintsIt) {
  // Each case builds its tree, then asks du's questions about paths below the case's root.
  using Questions = std::vector<std::pair<std::string, int>>;
  const struct { const char* name; std::function<void(Tree&)> build; Questions questions; } cases[] = {
      {"nested questions, a file and a missing path", [](Tree& t) {
         t.put({{"a/one", 5000}, {"a/b/two", 9000}, {"a/b/c/three", 1}, {"a/b/c/d/four", 70000}, {"top", 100}});
       }, {{"", 1}, {"a", 0}, {"a", 1}, {"a/b", 0}, {"a/b/c", 1}, {"a/b/c/d", 0}, {"top", 0}, {"gone", 0}}},
      {"hard links inside one question and across two", [](Tree& t) {
         t.put({{"p/f", 20000}});
         t.link("p/f", "p/deep/g");  // twice in p: once in p's figure
         t.link("p/f", "q/h");       // in p and in q: once in each
         t.link("p/f", "loose");     // directly in the root
         for (int i = 0; i < 12; ++i) t.put({{fmt::format("r{}/own", i), 3000}});  // du meets children in its order
         t.put({{"r5/m", 40000}});
         for (int i : {0, 3, 7, 11}) t.link("r5/m", fmt::format("r{}/m{}", i, i));
       }, {{"", 1}, {"p", 0}, {"q", 0}, {"p", 1}, {"r5", 0}, {"r7", 0}, {"loose", 0}}},
      {"sparse, empty and odd-sized files, empty folders", [](Tree& t) {
         t.put({{"files/sparse", 0}, {"files/empty", 0}});
         fs::resize_file(t.root / "files/sparse", 50'000'000);
         test::allocateFile(t.root / "files/held", 3'000'000);
         for (int i = 1; i <= 5; ++i) t.put({{fmt::format("files/odd{}", i), i * 513}});
         fs::create_directories(t.root / "empty/inner/innermost");
       }, {{"", 1}, {"files", 0}, {"files/sparse", 0}, {"files/empty", 0}, {"empty", 1}, {"empty/inner", 0}}},
      {"links to files and folders are never followed", [](Tree& t) {
         t.put({{"real/data", 100000}});
         fs::create_directory_symlink(t.root / "real", t.root / "to-folder");
         fs::create_symlink(t.root / "real/data", t.root / "to-file");
         fs::create_directories(t.root / "holder");
         fs::create_directory_symlink("../real", t.root / "holder/up");
         fs::create_symlink("/nowhere/at/all", t.root / "holder/dangling");
       }, {{"", 1}, {"to-folder", 0}, {"to-folder", 1}, {"to-file", 0}, {"holder", 1}}},
      {"names with blanks, tabs, newlines and bytes that are not UTF-8", [](Tree& t) {
         for (const char* name : {"with blank", "trailing blank ", "tab\there", "new\nline", "bad\xff\xfe",
                                  "사진 모음", " lead"})
           t.put({{std::string(name) + "/f", 4097}});
       }, {{"", 1}, {"new\nline", 0}, {"trailing blank ", 1}, {"bad\xff\xfe", 0}}},
      {"a folder that cannot be read", [](Tree& t) {
         t.put({{"locked/inside/f", 30000}, {"locked/g", 8000}, {"after/h", 8000}});
         t.lock("locked", fs::perms::owner_exec);  // what is below is still reached by its path, as du does
       }, {{"", 1}, {"locked", 0}, {"locked/inside", 0}, {"after", 0}}},
      {"a folder that cannot be entered", [](Tree& t) {
         t.put({{"closed/inside/f", 30000}, {"closed/g", 8000}});
         t.lock("closed", fs::perms::owner_read);
       }, {{"", 1}, {"closed", 1}, {"closed/inside", 0}}},
      {"a tmpfs mounted inside the tree", [](Tree& t) {
         t.put({{"disk/f", 10000}});
         fs::create_directories(t.root / "disk/mnt");
         if (::mount("vorlan-test", (t.root / "disk/mnt").c_str(), "tmpfs", 0, "size=4m") != 0)
           t.skip = fmt::format("cannot mount a tmpfs here: {}", std::strerror(errno));
         else
           t.mount = t.root / "disk/mnt";
         // The mount point is left out of its parents and measured on its own file system.
         t.put({{"disk/mnt/g", 200000}, {"disk/mnt/sub/h", 5000}});
       }, {{"", 1}, {"disk", 1}, {"disk/mnt", 0}, {"disk/mnt", 1}, {"disk/mnt/sub", 0}}},
      {"10,000 entries in one folder, with links across its child folders", [](Tree& t) {
         for (int i = 0; i < 10000; ++i) t.put({{fmt::format("big/f{:05d}", i), i % 7 ? 0 : 1}});
         t.put({{"big/s00/shared", 50000}});
         for (int i = 1; i < 24; ++i) t.link("big/s00/shared", fmt::format("big/s{:02d}/shared", i));
       }, {{"", 1}, {"big", 1}, {"big/s07", 0}}},
  };
  test::TempDir dir;
  for (size_t i = 0; i < std::size(cases); ++i) {
    Tree tree{dir / fmt::format("case{}", i), {}, {}};
    fs::create_directories(tree.root);
    cases[i].build(tree);
    if (!tree.skip.empty()) {
      std::cout << "row skipped: " << cases[i].name << ": " << tree.skip << "\n";
      continue;
    }
    std::vector<DuQuestion> questions;
    for (const auto& [rel, depth] : cases[i].questions)
      questions.push_back({rel.empty() ? tree.root.string() : (tree.root / rel).string(), depth});
    WalkEngine engine(3);
    engine.prepare(questions, {});
    for (const DuQuestion& q : questions)
      EXPECT_EQ(engine.du(q.path, q.depth), realDu(q.path, q.depth))
          << cases[i].name << ": -d " << q.depth << " " << q.path;
  }
}

// A home with rule paths inside each other and folders no rule knows: the whole result is the
// same under either engine. Links and odd names are the differential table's.
TEST(WalkEngine, WholeScanIsTheSameUnderBothEngines) {
  test::TempDir dir;
  Tree home{dir / "홈 폴더", {}, {}};
  const char* places[] = {".cache/pip/http", ".cache/huggingface/hub", ".npm/_cacache", "Library/Caches/com.app",
                          "Library/Application Support/Code/CachedData",
                          "Library/Application Support/MobileSync/Backup/x", "Library/Developer/Xcode/DerivedData/App",
                          "Library/Logs", "Documents/reports", "프로젝트/node_modules/pkg", "Pictures/휴가 사진", "with\ttab"};
  int n = 0;
  for (const char* place : places)
    for (int i = 0; i < 40; ++i) home.put({{fmt::format("{}/d{}/f{}", place, i % 4, i), ++n * 37 % 9000}});

  const auto noTools = [](const std::string&) { return false; };
  ProcessToolRunner runner;
  DeepScanResult byDu = DeepScanner(runner, home.root, noTools, ScanEngine::du).collect({});
  std::vector<ScanProgress> reports;
  DeepScanResult byWalk = DeepScanner(runner, home.root, noTools, ScanEngine::walk)
                              .collect([&](const ScanProgress& p) { reports.push_back(p); });
  ASSERT_GE(byDu.findings.size(), 10u);
  // The free space of "/" is read live by each scan and moves with whatever else runs.
  byWalk.diskFreeBytes = byDu.diskFreeBytes;
  byWalk.diskUsedSettingsBytes = byDu.diskUsedSettingsBytes;
  EXPECT_EQ(byWalk, byDu);
  // However short the walk, the folder it read last is shown, in the rule phase, before the rows.
  ASSERT_GE(reports.size(), 3u);
  EXPECT_EQ(reports[1].phase, 1);
  EXPECT_TRUE(reports[1].detail && reports[1].detail->starts_with("~/") && !reports[1].fraction) << *reports[1].detail;
  EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end(),
                             [](const ScanProgress& a, const ScanProgress& b) { return a.phase < b.phase; }));
}

TEST(WalkEngine, AStoppedWalkThrowsAndLeavesNoThread) {
  test::TempDir dir;
  for (int i = 0; i < 600; ++i) fs::create_directories(dir / fmt::format("t/{}/{}", i % 20, i));
  const size_t before = threadCount();
  for (const bool whileRunning : {false, true}) {
    std::stop_source stop;
    std::atomic<bool> returned{false};
    if (!whileRunning) stop.request_stop();
    std::jthread stopper([&] {  // else stops as soon as the walk's threads exist
      while (whileRunning && threadCount() <= before + 1 && !returned) std::this_thread::yield();
      stop.request_stop();
    });
    WalkEngine engine(3);
    EXPECT_THROW(engine.prepare({{(dir / "t").string(), 1}}, {}, stop.get_token()), Cancelled) << whileRunning;
    returned = true;
    stopper = {};
    EXPECT_EQ(threadCount(), before) << whileRunning;
  }
}

}  // namespace
}  // namespace vorlan

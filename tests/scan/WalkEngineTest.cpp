// The walk engine against the system's own du: the same entries for every question, and the
// same whole scan; a stopped walk leaves no thread behind.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <thread>

#include <fmt/format.h>

#include "Cancelled.hpp"
#include "scan/DeepScanner.hpp"
#include "scan/ProcessToolRunner.hpp"
#include "scan/WalkEngine.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using test::writeFile;

// The real `du -xk -d DEPTH PATH`, its lines ended by NUL (-0) so that names holding a newline
// come back whole; the figures are those of the plain command.
std::vector<DuEntry> realDu(const std::string& path, int depth) {
  const auto r = test::runProcess({"/usr/bin/env", "du", "-0", "-xk", "-d", std::to_string(depth), path});
  std::vector<DuEntry> entries;
  size_t start = 0;
  for (size_t end; (end = r.out.find('\0', start)) != std::string::npos; start = end + 1) {
    const std::string line = r.out.substr(start, end - start);
    const size_t tab = line.find('\t');
    entries.push_back({std::stoll(line.substr(0, tab)) * 1024, line.substr(tab + 1)});
  }
  return entries;
}

void link(const fs::path& from, const fs::path& to) {
  fs::create_directories(to.parent_path());
  fs::create_hard_link(from, to);
}

size_t threadCount() {
  return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/task"), {}));
}

// Unmounts at the end of a case, before its folder is removed.
struct Mount {
  fs::path at;
  ~Mount() {
    if (!at.empty()) ::umount2(at.c_str(), MNT_DETACH);
  }
};

struct Tree {
  fs::path root;
  Mount mount;
};

struct Case {
  const char* name;
  std::function<std::optional<std::string>(Tree&)> build;  // a reason to skip, or nothing
  std::vector<std::pair<std::string, int>> questions;     // paths below the case's root
};

std::optional<std::string> needsUnprivileged() {
  if (test::runningAsRoot()) return "root reads every folder; .ci/run repeats the suite unprivileged";
  return std::nullopt;
}

TEST(WalkEngine, AnswersEveryQuestionAsDuPrintsIt) {
  const Case cases[] = {
      {"nested questions, a file and a missing path",
       [](Tree& t) {
         writeFile(t.root / "a/one", std::string(5000, 'x'));
         writeFile(t.root / "a/b/two", std::string(9000, 'x'));
         writeFile(t.root / "a/b/c/three", std::string(1, 'x'));
         writeFile(t.root / "a/b/c/d/four", std::string(70000, 'x'));
         writeFile(t.root / "top", std::string(100, 'x'));
         return std::nullopt;
       },
       {{"", 1}, {"a", 0}, {"a", 1}, {"a/b", 0}, {"a/b/c", 1}, {"a/b/c/d", 0}, {"top", 0}, {"gone", 0}}},
      {"hard links inside one question and across two",
       [](Tree& t) {
         writeFile(t.root / "p/f", std::string(20000, 'x'));
         link(t.root / "p/f", t.root / "p/deep/g");  // twice in p: once in p's figure
         link(t.root / "p/f", t.root / "q/h");       // in p and in q: once in each
         link(t.root / "p/f", t.root / "loose");     // directly in the root
         for (int i = 0; i < 12; ++i) {              // which child du meets first is its order
           fs::create_directories(t.root / fmt::format("r{}", i));
           writeFile(t.root / fmt::format("r{}/own", i), std::string(3000, 'y'));
         }
         writeFile(t.root / "r5/m", std::string(40000, 'm'));
         for (int i : {0, 3, 7, 11}) link(t.root / "r5/m", t.root / fmt::format("r{}/m{}", i, i));
         return std::nullopt;
       },
       {{"", 1}, {"p", 0}, {"q", 0}, {"p", 1}, {"r5", 0}, {"r7", 0}, {"loose", 0}}},
      {"sparse, empty and odd-sized files, empty folders",
       [](Tree& t) {
         const fs::path sparse = t.root / "files/sparse";
         writeFile(sparse, "");
         fs::resize_file(sparse, 50'000'000);
         test::allocateFile(t.root / "files/held", 3'000'000);
         writeFile(t.root / "files/empty", "");
         for (int i = 1; i <= 5; ++i) writeFile(t.root / fmt::format("files/odd{}", i), std::string(i * 513, 'z'));
         fs::create_directories(t.root / "empty/inner/innermost");
         return std::nullopt;
       },
       {{"", 1}, {"files", 0}, {"files/sparse", 0}, {"files/empty", 0}, {"empty", 1}, {"empty/inner", 0}}},
      {"links to files and folders are never followed",
       [](Tree& t) {
         writeFile(t.root / "real/data", std::string(100000, 'x'));
         fs::create_directory_symlink(t.root / "real", t.root / "to-folder");
         fs::create_symlink(t.root / "real/data", t.root / "to-file");
         fs::create_directories(t.root / "holder");
         fs::create_directory_symlink("../real", t.root / "holder/up");
         fs::create_symlink("/nowhere/at/all", t.root / "holder/dangling");
         return std::nullopt;
       },
       {{"", 1}, {"to-folder", 0}, {"to-folder", 1}, {"to-file", 0}, {"holder", 1}}},
      {"names with blanks, tabs, newlines and bytes that are not UTF-8",
       [](Tree& t) {
         for (const char* name : {"with blank", "trailing blank ", "tab\there", "new\nline", "bad\xff\xfe",
                                  "사진 모음", " lead"})
           writeFile(t.root / name / "f", std::string(4097, 'x'));
         return std::nullopt;
       },
       {{"", 1}, {"new\nline", 0}, {"trailing blank ", 1}, {"bad\xff\xfe", 0}}},
      {"a folder that cannot be read",
       [](Tree& t) -> std::optional<std::string> {
         writeFile(t.root / "locked/inside/f", std::string(30000, 'x'));
         writeFile(t.root / "locked/g", std::string(8000, 'x'));
         writeFile(t.root / "after/h", std::string(8000, 'x'));
         fs::permissions(t.root / "locked", fs::perms::owner_exec);
         return needsUnprivileged();
       },
       // The folder below the unreadable one is still reached by its path, as du reaches it.
       {{"", 1}, {"locked", 0}, {"locked/inside", 0}, {"after", 0}}},
      {"a folder that cannot be entered",
       [](Tree& t) -> std::optional<std::string> {
         writeFile(t.root / "closed/inside/f", std::string(30000, 'x'));
         writeFile(t.root / "closed/g", std::string(8000, 'x'));
         fs::permissions(t.root / "closed", fs::perms::owner_read);
         return needsUnprivileged();
       },
       {{"", 1}, {"closed", 1}, {"closed/inside", 0}}},
      {"a tmpfs mounted inside the tree",
       [](Tree& t) -> std::optional<std::string> {
         writeFile(t.root / "disk/f", std::string(10000, 'x'));
         fs::create_directories(t.root / "disk/mnt");
         if (::mount("vorlan-test", (t.root / "disk/mnt").c_str(), "tmpfs", 0, "size=4m") != 0)
           return fmt::format("cannot mount a tmpfs here: {}", std::strerror(errno));
         t.mount.at = t.root / "disk/mnt";
         writeFile(t.root / "disk/mnt/g", std::string(200000, 'x'));
         writeFile(t.root / "disk/mnt/sub/h", std::string(5000, 'x'));
         return std::nullopt;
       },
       // The mount point is left out of its parents and measured on its own file system.
       {{"", 1}, {"disk", 1}, {"disk/mnt", 0}, {"disk/mnt", 1}, {"disk/mnt/sub", 0}}},
      {"10,000 entries in one folder, with links across its child folders",
       [](Tree& t) {
         const fs::path big = t.root / "big";
         fs::create_directories(big);
         for (int i = 0; i < 10000; ++i) writeFile(big / fmt::format("f{:05d}", i), i % 7 ? "" : "x");
         writeFile(big / "s00/shared", std::string(50000, 's'));
         for (int i = 1; i < 24; ++i) link(big / "s00/shared", big / fmt::format("s{:02d}/shared", i));
         return std::nullopt;
       },
       {{"", 1}, {"big", 1}, {"big/s07", 0}}},
  };

  test::TempDir dir;
  std::vector<std::string> skipped;
  int number = 0;
  for (const Case& c : cases) {
    Tree tree{dir / fmt::format("case{}", number++), {}};
    fs::create_directories(tree.root);
    if (auto reason = c.build(tree)) {
      skipped.push_back(fmt::format("{}: {}", c.name, *reason));
      continue;
    }
    std::vector<DuQuestion> questions;
    for (const auto& [rel, depth] : c.questions)
      questions.push_back({rel.empty() ? tree.root.string() : (tree.root / rel).string(), depth});
    WalkEngine engine(3);
    engine.prepare(questions, {});
    for (const DuQuestion& q : questions)
      EXPECT_EQ(engine.du(q.path, q.depth), realDu(q.path, q.depth)) << c.name << ": -d " << q.depth << " " << q.path;
  }
  for (const std::string& s : skipped) std::cout << "row skipped: " << s << "\n";
}

// A home with rule paths, links across them and across the sweeps, names that need care, and
// folders no rule knows: the whole result is the same under either engine.
TEST(WalkEngine, WholeScanIsTheSameUnderBothEngines) {
  test::TempDir dir;
  const fs::path home = dir / "홈 폴더";
  const char* places[] = {".cache/pip/http", ".cache/huggingface/hub", ".npm/_cacache", "Library/Caches/com.app",
                          "Library/Application Support/Code/CachedData", "Library/Application Support/MobileSync/Backup/x",
                          "Library/Developer/Xcode/DerivedData/App", "Library/Logs", "Documents/reports",
                          "프로젝트/node_modules/pkg", "Pictures/휴가 사진", "with\ttab"};
  int n = 0;
  for (const char* place : places)
    for (int i = 0; i < 40; ++i) writeFile(home / place / fmt::format("d{}/f{}", i % 4, i), std::string(++n * 37 % 9000, 'x'));
  link(home / ".cache/pip/http/d0/f0", home / "Documents/f0-again");
  link(home / ".cache/pip/http/d0/f0", home / "Library/Caches/com.app/f0-again");
  link(home / "Pictures/휴가 사진/d1/f1", home / "Library/Logs/f1-again");
  fs::create_directory_symlink(home / "Documents", home / "Library/Mobile Documents");
  fs::create_directories(home / ".vorlan/quarantine");

  const auto noTools = [](const std::string&) { return false; };
  ProcessToolRunner runner;
  DeepScanResult byDu = DeepScanner(runner, home, noTools, ScanEngine::du).collect({});
  std::vector<ScanProgress> reports;
  DeepScanResult byWalk = DeepScanner(runner, home, noTools, ScanEngine::walk).collect([&](const ScanProgress& p) {
    reports.push_back(p);
  });
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
    std::jthread stopper;
    if (whileRunning) {
      // Stops as soon as the walk's threads exist.
      stopper = std::jthread([&] {
        while (threadCount() <= before + 1 && !returned) std::this_thread::yield();
        stop.request_stop();
      });
    } else {
      stop.request_stop();
    }
    WalkEngine engine(3);
    EXPECT_THROW(engine.prepare({{(dir / "t").string(), 1}}, {}, stop.get_token()), Cancelled) << whileRunning;
    returned = true;
    stopper = {};
    EXPECT_EQ(threadCount(), before) << whileRunning;
  }
}

}  // namespace
}  // namespace vorlan

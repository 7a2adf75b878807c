// `vorlan clean` on a temporary home: what it shows, what it refuses, and a full clean and
// restore that leaves the tree byte for byte as it was.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__linux__)
#include <pty.h>
#endif

#include <chrono>
#include <filesystem>

#include "quarantine/TreeSnapshot.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using test::snapshotTree;
using test::treeDifference;

void allocate(const fs::path& path, off_t bytes) {
  fs::create_directories(path.parent_path());
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::posix_fallocate(fd, 0, bytes), 0);
  ::close(fd);
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    out.push_back(text.substr(start, end - start));
  return out;
}

class CleanCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    test::writeFile(home / "Applications/Owned.app/Contents/Info.plist",
                    R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>CFBundleIdentifier</key><string>com.owned.app</string></dict></plist>)");
    test::writeFile(home / "Documents/notes/a.txt", "first note");
    test::writeFile(home / "Documents/notes/deep/b.md", "# second");
    fs::permissions(home / "Documents/notes/a.txt", fs::perms::owner_read);
    test::writeFile(home / "Documents/keep.txt", "stays");
    test::writeFile(outside / "secret", "outside the home");
    fs::create_symlink(outside, home / "escape");
  }

  // Folders big enough to be shown and ticked by the plan. Owned and fresh: purged at once.
  // Orphaned: held. Under review: not ticked.
  void addPlanFolders() {
    allocate(home / "Library/Caches/com.owned.app/blob", 90'000'000);
    allocate(home / "Library/Caches/com.gone.tool/blob", 60'000'000);
    allocate(home / "Library/Application Support/Mystery Stuff/blob", 55'000'000);
  }

  test::ProcessOutcome vorlan(std::vector<std::string> args, std::optional<std::string> input = std::nullopt) {
    args.insert(args.begin(), test::cliPath());
    test::ProcessOptions options;
    options.env["HOME"] = home.string();
    options.env["TZ"] = "UTC0";
    options.stdinText = std::move(input);
    return test::runProcess(args, options);
  }

  test::Tree wholeTree() const { return snapshotTree(dir.path()); }
  test::Tree homeTree() const { return snapshotTree(home, {".vorlan"}); }

  test::TempDir dir;
  fs::path home = dir / "home";
  fs::path outside = dir / "outside";
};

TEST_F(CleanCommand, DryRunShowsEverythingAndChangesNothing) {
  addPlanFolders();
  const auto before = wholeTree();
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"clean", "--dry-run", "--no-progress"},
        std::vector<std::string>{"clean", "--dry-run", "--no-progress", "--yes", "~/Documents/notes"}}) {
    const auto run = vorlan(args);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("미리 보기입니다. 아무것도 바꾸지 않았습니다."), std::string::npos) << run.out;
    EXPECT_EQ(treeDifference(before, wholeTree()), "");
  }
  const auto run = vorlan({"clean", "--dry-run", "--no-progress"});
  EXPECT_EQ(lines(run.out), (std::vector<std::string>{
                                "바로 비움 (다시 만들어지는 캐시) — 1개 · 0.1GB",
                                "  0.1GB  ~/Library/Caches/com.owned.app",
                                "7일 보관 (그때까지 되돌릴 수 있음) — 1개 · 0.1GB",
                                "  0.1GB  ~/Library/Caches/com.gone.tool",
                                "지금 바로 확보 0.1GB",
                                "7일 뒤 확보 0.1GB — 그때까지 되돌릴 수 있음",
                                "미리 보기입니다. 아무것도 바꾸지 않았습니다.",
                            }));
}

TEST_F(CleanCommand, RefusesWithoutYesWhenStdinIsNoTerminal) {
  const auto before = wholeTree();
  const auto run = vorlan({"clean", "--no-progress", "Documents/notes"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_NE(run.err.find("--yes"), std::string::npos) << run.err;
  EXPECT_EQ(treeDifference(before, wholeTree()), "");
  EXPECT_FALSE(fs::exists(home / ".vorlan"));
}

TEST_F(CleanCommand, BadPathsAreRefusedOneLineEachAndNothingMoves) {
  struct Case {
    std::string path;
    std::string line;
  };
  const Case cases[] = {
      {"/etc", "vorlan: 홈 폴더 밖의 경로는 지울 수 없습니다: /etc"},
      {"../outside", "vorlan: 홈 폴더 밖의 경로는 지울 수 없습니다: ../outside"},
      {"Documents/../../outside", "vorlan: 홈 폴더 밖의 경로는 지울 수 없습니다: Documents/../../outside"},
      {"escape/secret", "vorlan: 홈 폴더 밖으로 이어지는 링크를 거치는 경로는 지울 수 없습니다: escape/secret"},
      {"~/Documents/nope", "vorlan: 없는 경로입니다: ~/Documents/nope"},
      {"~", "vorlan: 홈 폴더 자체는 지울 수 없습니다: ~"},
      {".vorlan", "vorlan: Vorlan 자신의 보관 폴더는 지울 수 없습니다: ~/.vorlan"},
  };
  const auto before = wholeTree();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    // Next to a good path, so that "nothing moved" means something.
    const auto run = vorlan({"clean", "--yes", "--no-progress", "Documents/notes", c.path});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, c.line + "\n");
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(treeDifference(before, wholeTree()), "");
  }
  // A folder the plan keeps can't be named by hand either.
  test::writeFile(home / "Library/Application Support/Bitcoin/wallet.dat", "coins");
  const auto kept = vorlan({"clean", "--yes", "--no-progress", "Documents/notes", "Library/Application Support/Bitcoin"});
  EXPECT_EQ(kept.exitCode, 1);
  EXPECT_EQ(kept.err, "vorlan: 정리 계획에서 지울 수 없다고 본 항목입니다: ~/Library/Application Support/Bitcoin\n");
  EXPECT_TRUE(fs::exists(home / "Documents/notes/a.txt"));
  EXPECT_TRUE(fs::exists(home / "Library/Application Support/Bitcoin/wallet.dat"));
  // Two bad paths: one line for each.
  const auto run = vorlan({"clean", "--yes", "/etc", "nope"});
  EXPECT_EQ(lines(run.err).size(), 2u) << run.err;
}

TEST_F(CleanCommand, CleanThenRestoreGivesBackTheSameTree) {
  const auto outsideBefore = snapshotTree(outside);
  test::writeFile(home / "Library/Caches/com.gone.tool/cache.db", std::string(10000, 'd'));
  const auto before = homeTree();
  const auto run = vorlan({"clean", "--yes", "--no-progress", "~/Documents/notes", "escape",
                           home.string() + "/Library/Caches/com.gone.tool"});
  ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  EXPECT_FALSE(fs::exists(home / "Documents/notes"));
  EXPECT_FALSE(fs::exists(fs::symlink_status(home / "escape")));
  EXPECT_EQ(snapshotTree(outside), outsideBefore);
  EXPECT_NE(run.out.find("보관함으로 옮김: 3개"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("치운 파일    0.0GB   되돌릴 수 있어요"), std::string::npos) << run.out;
  const auto restoreHint = run.out.find("되돌리려면: vorlan quarantine restore ");
  ASSERT_NE(restoreHint, std::string::npos) << run.out;
  const std::string id = lines(run.out.substr(restoreHint)).front().substr(std::string("되돌리려면: vorlan quarantine restore ").size());

  const auto listed = vorlan({"quarantine"});
  EXPECT_NE(listed.out.find("묶음 " + id), std::string::npos) << listed.out;

  const auto restored = vorlan({"quarantine", "restore", id});
  ASSERT_EQ(restored.exitCode, 0) << restored.out << restored.err;
  EXPECT_NE(restored.out.find("3개를 모두 되돌렸습니다."), std::string::npos) << restored.out;
  EXPECT_EQ(treeDifference(before, homeTree()), "");
  EXPECT_TRUE(fs::is_empty(home / ".vorlan/quarantine"));
}

TEST_F(CleanCommand, WithoutPathsTheDefaultTicksAreCarriedOut) {
  addPlanFolders();
  const auto run = vorlan({"clean", "--yes", "--no-progress"});
  ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  EXPECT_NE(run.out.find("바로 비움: 1개 · 0.1GB"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("보관함으로 옮김: 1개 · 0.1GB"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("비운 공간    0.1GB"), std::string::npos) << run.out;
  EXPECT_FALSE(fs::exists(home / "Library/Caches/com.owned.app"));
  EXPECT_FALSE(fs::exists(home / "Library/Caches/com.gone.tool"));
  EXPECT_TRUE(fs::exists(home / "Library/Application Support/Mystery Stuff/blob"));
  // Only the held batch stays in the quarantine.
  const auto listed = vorlan({"quarantine", "list"});
  EXPECT_NE(listed.out.find("~/Library/Caches/com.gone.tool"), std::string::npos) << listed.out;
  EXPECT_EQ(listed.out.find("com.owned.app"), std::string::npos) << listed.out;
}

#if defined(__linux__)
// Runs `vorlan clean` on a terminal of its own, answers its question (or interrupts it), and
// returns the exit status.
int cleanOnTerminal(const fs::path& home, const std::string& answer, bool interrupt) {
  int master = -1, slave = -1;
  if (::openpty(&master, &slave, nullptr, nullptr, nullptr) != 0) return -1;
  pid_t pid = ::fork();
  if (pid == 0) {
    ::setsid();
    ::ioctl(slave, TIOCSCTTY, 0);
    ::dup2(slave, 0), ::dup2(slave, 1), ::dup2(slave, 2);
    ::close(master);
    ::setenv("HOME", home.c_str(), 1);
    ::execl(test::cliPath().c_str(), "vorlan", "clean", "--no-progress", "Documents/notes", nullptr);
    ::_exit(127);
  }
  ::close(slave);
  std::string seen;
  bool asked = false;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (std::chrono::steady_clock::now() < deadline) {
    pollfd fd{master, POLLIN, 0};
    if (::poll(&fd, 1, 200) <= 0) continue;
    char buffer[4096];
    ssize_t n = ::read(master, buffer, sizeof buffer);
    if (n <= 0) break;  // the program closed its terminal
    seen.append(buffer, static_cast<size_t>(n));
    if (!asked && seen.find("[y/N]") != std::string::npos) {
      asked = true;
      if (interrupt)
        ::kill(pid, SIGINT);
      else
        (void)!::write(master, (answer + "\n").c_str(), answer.size() + 1);
    }
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  ::close(master);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
#endif

TEST_F(CleanCommand, AsksOnATerminal) {
#if !defined(__linux__)
  GTEST_SKIP() << "terminal test uses Linux pseudo-terminals";
#else
  struct Case {
    std::string name;
    std::string answer;
    bool interrupt;
    int exitCode;
    bool moved;
  };
  const Case cases[] = {
      {"declined", "n", false, 1, false},
      {"just enter", "", false, 1, false},
      {"Ctrl-C at the question", "", true, 130, false},
      {"accepted", "y", false, 0, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(cleanOnTerminal(home, c.answer, c.interrupt), c.exitCode);
    EXPECT_EQ(fs::exists(home / "Documents/notes/a.txt"), !c.moved);
  }
#endif
}

}  // namespace
}  // namespace vorlan

// `vorlan clean` on a temporary home: what it shows, what it refuses, and a full clean and
// restore that leaves the tree byte for byte as it was.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__linux__)
#include <pty.h>
#endif

#include "quarantine/TreeSnapshot.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::test {
namespace {

namespace fs = std::filesystem;

class CleanCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(home / "Applications/Owned.app/Contents/Info.plist",
              "<plist><dict><key>CFBundleIdentifier</key><string>com.owned.app</string></dict></plist>");
    writeFile(home / "Documents/notes/a.txt", "first note");
    writeFile(home / "Documents/notes/deep/b.md", "# second");
    fs::permissions(home / "Documents/notes/a.txt", fs::perms::owner_read);
    writeFile(home / "Library/Application Support/Bitcoin/wallet.dat", "coins");
    writeFile(dir / "outside/secret", "outside the home");
    fs::create_symlink(dir / "outside", home / "escape");
  }

  ProcessOutcome vorlan(std::vector<std::string> args) { return runCli(home, args); }
  Tree wholeTree() const { return snapshotTree(dir.path()); }

  TempDir dir;
  fs::path home = dir / "home";
};

TEST_F(CleanCommand, DryRunShowsThePlanAndChangesNothingThenTheRunDoesIt) {
  // Owned and fresh: purged at once. Orphaned: held. Under review: not ticked.
  allocateFile(home / "Library/Caches/com.owned.app/blob", 90'000'000);
  allocateFile(home / "Library/Caches/com.gone.tool/blob", 60'000'000);
  allocateFile(home / "Library/Application Support/Mystery Stuff/blob", 55'000'000);
  const auto before = wholeTree();
  EXPECT_EQ(vorlan({"clean", "--dry-run", "--no-progress"}).out,
            "바로 비움 (다시 만들어지는 캐시) — 1개 · 0.1GB\n"
            "  0.1GB  ~/Library/Caches/com.owned.app\n"
            "7일 보관 (그때까지 되돌릴 수 있음) — 1개 · 0.1GB\n"
            "  0.1GB  ~/Library/Caches/com.gone.tool\n"
            "지금 바로 확보 0.1GB\n"
            "7일 뒤 확보 0.1GB — 그때까지 되돌릴 수 있음\n"
            "미리 보기입니다. 아무것도 바꾸지 않았습니다.\n");
  EXPECT_EQ(treeDifference(before, wholeTree()), "");
  // --dry-run wins over --yes.
  EXPECT_EQ(vorlan({"clean", "--dry-run", "--yes", "--no-progress", "~/Documents/notes"}).exitCode, 0);
  EXPECT_EQ(treeDifference(before, wholeTree()), "");

  ASSERT_EQ(vorlan({"clean", "--yes", "--no-progress"}).exitCode, 0);
  EXPECT_FALSE(fs::exists(home / "Library/Caches/com.owned.app"));
  EXPECT_TRUE(fs::exists(home / "Library/Application Support/Mystery Stuff/blob"));
  EXPECT_TRUE(vorlan({"quarantine"}).out.contains("~/Library/Caches/com.gone.tool")) << "held, not purged";
}

TEST_F(CleanCommand, RefusalsAreOneLineEachAndNothingMoves) {
  const struct { std::vector<std::string> args; int exitCode; std::string line; } cases[] = {
      // stdin is no terminal here, so nobody could have been asked
      {{}, 2, "터미널에서 실행하지 않을 때는 --yes 를 붙여야 지웁니다. 아무것도 바꾸지 않았습니다."},
      {{"--yes", "/etc"}, 1, "홈 폴더 밖의 경로는 지울 수 없습니다: /etc"},
      {{"--yes", "Documents/../../outside"}, 1, "홈 폴더 밖의 경로는 지울 수 없습니다: Documents/../../outside"},
      {{"--yes", "escape/secret"}, 1, "홈 폴더 밖으로 이어지는 링크를 거치는 경로는 지울 수 없습니다: escape/secret"},
      {{"--yes", "~/Documents/nope"}, 1, "없는 경로입니다: ~/Documents/nope"},
      {{"--yes", "~"}, 1, "홈 폴더 자체는 지울 수 없습니다: ~"},
      {{"--yes", home.string() + "/"}, 1, "홈 폴더 자체는 지울 수 없습니다: " + home.string() + "/"},
      {{"--yes", ".vorlan"}, 1, "Vorlan 자신의 보관 폴더는 지울 수 없습니다: ~/.vorlan"},
      {{"--yes", "Library/Application Support/Bitcoin"}, 1,
       "정리 계획에서 지울 수 없다고 본 항목입니다: ~/Library/Application Support/Bitcoin"},
  };
  const auto before = wholeTree();
  for (const auto& c : cases) {
    // Next to a good path, so that "nothing moved" means something.
    auto args = c.args;
    args.insert(args.begin(), {"clean", "--no-progress", "Documents/notes"});
    const auto run = vorlan(args);
    EXPECT_EQ(run.exitCode, c.exitCode) << c.line;
    EXPECT_EQ(run.err, "vorlan: " + c.line + (c.exitCode == 2 ? "\n도움말: vorlan --help\n" : "\n"));
    EXPECT_EQ(treeDifference(before, wholeTree()), "") << c.line;
  }
}

TEST_F(CleanCommand, CleanThenRestoreGivesBackTheSameTree) {
  writeFile(home / "Library/Caches/com.gone.tool/cache.db", std::string(10000, 'd'));
  const auto before = wholeTree();
  // Three spellings of a path; a link is moved as a link, never followed.
  const auto run = vorlan({"clean", "--yes", "--no-progress", "~/Documents/notes", "escape",
                           home.string() + "/Library/Caches/com.gone.tool"});
  ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  EXPECT_FALSE(fs::exists(home / "Documents/notes"));
  EXPECT_FALSE(fs::exists(fs::symlink_status(home / "escape")));
  const auto id = fs::directory_iterator(home / ".vorlan/quarantine")->path().filename().string();
  EXPECT_TRUE(run.out.contains("되돌리려면: vorlan quarantine restore " + id + "\n")) << run.out;

  const auto restored = vorlan({"quarantine", "restore", id});
  ASSERT_EQ(restored.exitCode, 0) << restored.out << restored.err;
  EXPECT_TRUE(restored.out.contains("3개를 모두 되돌렸습니다.")) << restored.out;
  EXPECT_EQ(treeDifference(before, snapshotTree(dir.path(), {"home/.vorlan"})), "");
  EXPECT_TRUE(fs::is_empty(home / ".vorlan/quarantine"));
}

#if defined(__linux__)
// On a terminal of its own, `clean` asks first; a bare Enter is a no.
TEST_F(CleanCommand, OnATerminalEnterMeansNo) {
  int master = -1;
  const pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
  if (pid < 0) GTEST_SKIP() << "no pseudo-terminal can be opened here (no /dev/pts?)";
  if (pid == 0) {
    ::setenv("HOME", home.c_str(), 1);
    ::execl(cliPath().c_str(), "vorlan", "clean", "--no-progress", "Documents/notes", nullptr);
    ::_exit(127);
  }
  std::string seen;
  char buffer[4096];
  for (pollfd fd{master, POLLIN, 0}; ::poll(&fd, 1, 30'000) > 0;) {
    const ssize_t n = ::read(master, buffer, sizeof buffer);
    if (n <= 0) break;  // the program closed its terminal
    seen.append(buffer, static_cast<size_t>(n));
    if (seen.ends_with("[y/N] ")) (void)!::write(master, "\n", 1);
  }
  ::close(master);  // hangs up a program that is still waiting
  int status = 0;
  ::waitpid(pid, &status, 0);
  EXPECT_TRUE(seen.contains("[y/N]")) << seen;
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1) << seen;
  EXPECT_TRUE(fs::exists(home / "Documents/notes/a.txt"));
}
#endif

}  // namespace
}  // namespace vorlan::test

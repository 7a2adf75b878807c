// `vorlan plan` and `vorlan clean` on a temporary home: the plan's table and JSON rows, what
// clean shows and refuses, and a full clean and restore that leaves the tree byte for byte as
// it was.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__linux__)
#include <pty.h>
#endif

#include <nlohmann/json.hpp>

#include "quarantine/TreeSnapshot.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::test {
namespace {

namespace fs = std::filesystem;

class PlanCommand : public ::testing::Test {
 protected:
  // Owned by an installed app and fresh: purged at once. Orphaned: held. Under a review rule:
  // shown, not ticked. Tiny: hidden unless --all.
  void SetUp() override {
    writeFile(home / "Applications/Owned.app/Contents/Info.plist",
              "<plist><dict><key>CFBundleIdentifier</key><string>com.owned.app</string></dict></plist>");
    for (const auto& [path, bytes] : {std::pair{"Library/Caches/com.owned.app", 90'000'000},
                                      {"Library/Caches/com.gone.tool", 60'000'000},
                                      {"Library/Application Support/Mystery Stuff", 55'000'000}})
      allocateFile(home / path / "blob", bytes);
    writeFile(home / ".npm/small-thing/f", "tiny");
  }
  ProcessOutcome vorlan(std::vector<std::string> args) { return runCli(home.path(), args); }
  TempDir home;
};

TEST_F(PlanCommand, TableShowsVisibleRowsLargestFirstWithTotalsAndJsonHasEveryFieldInStableOrder) {
  const auto run = vorlan({"plan", "--no-progress"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.err, "");
  size_t at = 0;
  for (const std::string line :
       {"(50MB 미만 1개 숨김 — 모두 보려면 --all)", "[✓] 0.1GB  다시 생김  ~/Library/Caches/com.owned.app",
        "[✓] 0.1GB  주인 없음  ~/Library/Caches/com.gone.tool", "→ 지운 앱이 남긴 것입니다",
        "[ ] 0.1GB  확인 필요  ~/Library/Application Support/Mystery Stuff", "체크한 항목 2개 · 선택한 0.2GB",
        "지금 바로 확보 0.1GB (1개)", "7일 뒤 확보 0.1GB (1개)"}) {
    at = run.out.find(line, at);
    ASSERT_NE(at, std::string::npos) << line << "\n" << run.out;
  }
  EXPECT_FALSE(run.out.contains("small-thing")) << run.out;
  const auto all = vorlan({"plan", "--no-progress", "--all"});
  EXPECT_TRUE(all.out.contains("[ ] 0.0GB  확인 필요  ~/.npm/small-thing")) << all.out;
  EXPECT_FALSE(all.out.contains("숨김")) << all.out;

  const auto json = vorlan({"plan", "--no-progress", "--json"});
  ASSERT_EQ(json.exitCode, 0) << json.err;
  const auto rows = nlohmann::ordered_json::parse(json.out);
  ASSERT_EQ(rows.size(), 3u);
  std::vector<std::string> keys;
  for (const auto& [key, value] : rows[0].items()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"name", "path", "bytes", "last_changed_epoch", "file_count", "verdict",
                                            "checked", "reason", "delete_paths", "what", "consequence",
                                            "purge_immediately"}));
  EXPECT_EQ(rows[0]["path"], "Library/Caches/com.owned.app");
  EXPECT_EQ(rows[0]["purge_immediately"], true);
  EXPECT_EQ(rows[2]["verdict"], "needs_review");
  EXPECT_EQ(rows[2]["checked"], false);
}

TEST_F(PlanCommand, CleanDryRunShowsThePlanAndChangesNothingThenTheRunDoesIt) {
  const auto before = snapshotTree(home.path());
  EXPECT_EQ(vorlan({"clean", "--dry-run", "--no-progress"}).out,
            "바로 비움 (다시 만들어지는 캐시) — 1개 · 0.1GB\n"
            "  0.1GB  ~/Library/Caches/com.owned.app\n"
            "7일 보관 (그때까지 되돌릴 수 있음) — 1개 · 0.1GB\n"
            "  0.1GB  ~/Library/Caches/com.gone.tool\n"
            "지금 바로 확보 0.1GB\n"
            "7일 뒤 확보 0.1GB — 그때까지 되돌릴 수 있음\n"
            "미리 보기입니다. 아무것도 바꾸지 않았습니다.\n");
  EXPECT_EQ(treeDifference(before, snapshotTree(home.path())), "");
  // --dry-run wins over --yes.
  EXPECT_EQ(vorlan({"clean", "--dry-run", "--yes", "--no-progress", ".npm/small-thing"}).exitCode, 0);
  EXPECT_EQ(treeDifference(before, snapshotTree(home.path())), "");

  ASSERT_EQ(vorlan({"clean", "--yes", "--no-progress"}).exitCode, 0);
  EXPECT_FALSE(fs::exists(home / "Library/Caches/com.owned.app"));
  EXPECT_TRUE(fs::exists(home / "Library/Application Support/Mystery Stuff/blob"));
  EXPECT_TRUE(vorlan({"quarantine"}).out.contains("~/Library/Caches/com.gone.tool")) << "held, not purged";
}

TEST_F(PlanCommand, UnreadableParentIsOneLineOnStderr) {
  if (runningAsRoot()) GTEST_SKIP() << "root reads every folder";
  fs::permissions(home / "Library/Application Support", fs::perms::none);
  const auto run = vorlan({"plan", "--no-progress"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.err, "vorlan: 읽을 수 없어 건너뜀: ~/Library/Application Support\n");
  // The unreadable parent has no rows; the others still do.
  EXPECT_FALSE(run.out.contains("Mystery Stuff")) << run.out;
  EXPECT_TRUE(run.out.contains("com.gone.tool")) << run.out;
}

class CleanCommand : public ::testing::Test {
 protected:
  void SetUp() override {
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
  for (auto c : cases) {
    // Next to a good path, so that "nothing moved" means something.
    c.args.insert(c.args.begin(), {"clean", "--no-progress", "Documents/notes"});
    const auto run = vorlan(c.args);
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
  // Read until the program closes its terminal, answering its question with a bare Enter.
  pollfd fd{master, POLLIN, 0};
  for (ssize_t n; ::poll(&fd, 1, 30'000) > 0 && (n = ::read(master, buffer, sizeof buffer)) > 0;)
    if (seen.append(buffer, size_t(n)).ends_with("[y/N] ")) (void)!::write(master, "\n", 1);
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

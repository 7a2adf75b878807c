// `vorlan quarantine` on a temporary home: listing, restoring without overwriting, emptying,
// expiry and recovery of a folder an interrupted move left behind.
#include <gtest/gtest.h>

#include <filesystem>

#include "quarantine/Quarantine.hpp"
#include "quarantine/TreeSnapshot.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::snapshotTree;
using test::treeDifference;
using test::writeFile;

constexpr int64_t kLongAgo = 1773479702;  // 2026-03-14 09:15:02 UTC

class QuarantineCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(home / "Documents/a/one.txt", "one");
    writeFile(home / "Documents/b.txt", "two");
    writeFile(home / "Documents/c.txt", "three");
  }

  test::ProcessOutcome vorlan(std::vector<std::string> args) {
    args.insert(args.begin(), test::cliPath());
    test::ProcessOptions options;
    options.env["HOME"] = home.string();
    options.env["TZ"] = "UTC0";
    return test::runProcess(args, options);
  }

  test::Tree homeTree() const { return snapshotTree(home, {".vorlan"}); }

  test::TempDir dir;
  fs::path home = dir / "home";
  Quarantine quarantine{Quarantine::defaultRoot(home), home};
};

TEST_F(QuarantineCommand, ListShowsEachBatchWithItsDatesAndFailures) {
  EXPECT_EQ(vorlan({"quarantine"}).out, "보관함이 비어 있습니다.\n");
  const QuarantineBatch batch = quarantine.move({"Documents/a", "Documents/gone"}, kLongAgo);
  for (const auto& args : {std::vector<std::string>{"quarantine"}, std::vector<std::string>{"quarantine", "list"}}) {
    const auto run = vorlan(args);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out,
              "치운 파일    0.0GB   되돌릴 수 있어요\n"
              "비운 공간    0.0GB\n"
              "보관 기한 2026-03-21\n"
              "\n"
              "묶음 2026-03-14T091502 — 1개 항목 · 0.0GB · 옮긴 때 2026-03-14 09:15 · 비우는 때 2026-03-21 09:15\n"
              "  곧 자동으로 비워집니다\n"
              "     0.0GB  ~/Documents/a\n"
              "  옮기지 못한 항목 1개:\n"
              "            ~/Documents/gone\n");
  }
  // A folder without a manifest is no batch, but the list points to the way back.
  writeFile(quarantine.root / "2026-03-15T000000/Documents/lost", "x");
  EXPECT_NE(vorlan({"quarantine"}).out.find("옮기다 끊긴 폴더 1개가 있습니다: 2026-03-15T000000"), std::string::npos);
}

TEST_F(QuarantineCommand, RestoreKeepsWhatNowStandsInPlace) {
  const QuarantineBatch batch = quarantine.move({"Documents/a", "Documents/b.txt"}, kLongAgo);
  writeFile(home / "Documents/b.txt", "a new file");
  const auto run = vorlan({"quarantine", "restore", batch.id});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out,
            "되돌림: ~/Documents/a\n"
            "남겨 둠: ~/Documents/b.txt — 그 자리에 이미 다른 것이 있습니다\n"
            "2개 중 1개를 되돌렸습니다 — 나머지는 같은 위치에 새 파일이 생겨 보관함에 남아 있습니다\n");
  EXPECT_EQ(readFile(home / "Documents/b.txt"), "a new file");
  EXPECT_EQ(readFile(home / "Documents/a/one.txt"), "one");
  EXPECT_EQ(readFile(quarantine.root / batch.id / "Documents/b.txt"), "two");
}

TEST_F(QuarantineCommand, RefusesBadArguments) {
  fs::create_directories(quarantine.root);
  struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::string firstLine;
  };
  const Case cases[] = {
      {{"quarantine", "restore", ".."}, 2, "vorlan: 보관함 묶음 이름이 올바르지 않습니다: .."},
      {{"quarantine", "restore", "a/b"}, 2, "vorlan: 보관함 묶음 이름이 올바르지 않습니다: a/b"},
      {{"quarantine", "restore", "2020-01-01T000000"}, 1, "vorlan: 보관함에 그런 묶음이 없습니다: 2020-01-01T000000"},
      {{"quarantine", "restore"}, 2, "vorlan: 되돌릴 묶음 하나를 알려 주세요: vorlan quarantine restore ID"},
      {{"quarantine", "list", "extra"}, 2, "vorlan: 'quarantine list'이 모르는 인자입니다: extra"},
      {{"quarantine", "shred"}, 2, "vorlan: 'quarantine'이 모르는 동작입니다: shred (list, restore, empty, expire, recover)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args.back());
    const auto run = vorlan(c.args);
    EXPECT_EQ(run.exitCode, c.exitCode);
    EXPECT_EQ(run.err.substr(0, run.err.find('\n')), c.firstLine);
  }
}

TEST_F(QuarantineCommand, ExpireTakesOnlyWhatIsDue) {
  const QuarantineBatch old = quarantine.move({"Documents/a"}, kLongAgo - 30 * 86400);
  writeFile(quarantine.root / "2000-01-01T000000/Documents/precious", "no manifest: never expired");
  const auto run = vorlan({"quarantine", "expire"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.out, "비움: 묶음 " + old.id + "\n기한이 지난 묶음 1개를 비웠습니다 — 비운 공간 0.0GB\n");
  EXPECT_FALSE(fs::exists(quarantine.root / old.id));
  EXPECT_EQ(readFile(quarantine.root / "2000-01-01T000000/Documents/precious"), "no manifest: never expired");
  EXPECT_EQ(vorlan({"quarantine", "expire"}).out, "기한이 지난 묶음이 없습니다.\n");
}

TEST_F(QuarantineCommand, EmptyingNeedsYesAwayFromATerminal) {
  quarantine.move({"Documents/a"}, kLongAgo);
  quarantine.move({"Documents/b.txt"}, kLongAgo);
  const auto refused = vorlan({"quarantine", "empty"});
  EXPECT_EQ(refused.exitCode, 2);
  EXPECT_EQ(quarantine.listBatches().size(), 2u);
  const auto run = vorlan({"quarantine", "empty", "--yes"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.out, "보관함의 묶음 2개, 0.0GB를 지웁니다. 사라지고 되돌릴 수 없습니다.\n비운 공간 0.0GB\n");
  EXPECT_TRUE(quarantine.batches().empty());
  EXPECT_EQ(readFile(home / "Documents/c.txt"), "three");
}

TEST_F(QuarantineCommand, RecoverBringsBackWhatAnInterruptedMoveLeft) {
  const auto before = homeTree();
  // A move that stops before its manifest, as a crash would leave it.
  auto faults = std::make_shared<FileFaults>();
  faults->checkpoint = [](std::string_view point, std::string_view) {
    if (point == "manifest") throw std::runtime_error("the process dies here");
  };
  Quarantine interrupted(quarantine.root, home, faults);
  EXPECT_THROW(interrupted.move({"Documents/a", "Documents/b.txt"}, kLongAgo), std::runtime_error);
  EXPECT_FALSE(fs::exists(home / "Documents/a"));
  EXPECT_TRUE(vorlan({"quarantine"}).out.starts_with("보관함이 비어 있습니다.\n"));

  const auto run = vorlan({"quarantine", "recover"});
  ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  EXPECT_EQ(run.out,
            "되돌림: ~/Documents/a\n"
            "되돌림: ~/Documents/b.txt\n"
            "폴더 2026-03-14T091502: 모두 되돌리고 폴더를 지웠습니다.\n");
  EXPECT_EQ(treeDifference(before, homeTree()), "");
  EXPECT_TRUE(quarantine.batches().empty());
  EXPECT_EQ(vorlan({"quarantine", "recover"}).out, "되돌릴 끊긴 폴더가 없습니다.\n");
}

}  // namespace
}  // namespace vorlan

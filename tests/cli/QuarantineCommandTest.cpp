// `vorlan quarantine` on a temporary home: listing, restoring without overwriting, expiry and
// emptying.
#include <gtest/gtest.h>

#include <ctime>

#include "quarantine/Quarantine.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::test {
namespace {

namespace fs = std::filesystem;

constexpr int64_t kLongAgo = 1773479702;  // 2026-03-14 09:15:02 UTC

class QuarantineCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(home / "Documents/a/one.txt", "one");
    writeFile(home / "Documents/b.txt", "two");
  }

  ProcessOutcome vorlan(std::vector<std::string> args) {
    args.insert(args.begin(), "quarantine");
    ProcessOptions options;
    options.env["TZ"] = "UTC0";
    return runCli(home, args, options);
  }

  TempDir dir;
  fs::path home = dir / "home";
  Quarantine quarantine{Quarantine::defaultRoot(home), home};
};

TEST_F(QuarantineCommand, ListShowsEachBatchWithItsDatesAndFailures) {
  quarantine.move({"Documents/a", "Documents/gone"}, kLongAgo);
  // A folder without a manifest is no batch, but the list points to the way back.
  writeFile(quarantine.root / "2026-03-15T000000/Documents/lost", "x");
  const auto run = vorlan({"list"});
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
            "            ~/Documents/gone\n"
            "옮기다 끊긴 폴더 1개가 있습니다: 2026-03-15T000000 — 되돌리려면: vorlan quarantine recover\n");
}

TEST_F(QuarantineCommand, RestoreKeepsWhatNowStandsInPlace) {
  const auto batch = quarantine.move({"Documents/a", "Documents/b.txt"}, kLongAgo);
  writeFile(home / "Documents/b.txt", "a new file");
  const auto run = vorlan({"restore", batch.id});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out,
            "되돌림: ~/Documents/a\n"
            "남겨 둠: ~/Documents/b.txt — 그 자리에 이미 다른 것이 있습니다\n"
            "2개 중 1개를 되돌렸습니다 — 나머지는 같은 위치에 새 파일이 생겨 보관함에 남아 있습니다\n");
  EXPECT_EQ(readFile(home / "Documents/b.txt"), "a new file");
  EXPECT_EQ(readFile(home / "Documents/a/one.txt"), "one");
  EXPECT_EQ(readFile(quarantine.root / batch.id / "Documents/b.txt"), "two");
}

TEST_F(QuarantineCommand, ExpireTakesOnlyWhatIsDueAndEmptyingNeedsYes) {
  const auto old = quarantine.move({"Documents/a"}, kLongAgo - 30 * 86400);
  const auto fresh = quarantine.move({"Documents/b.txt"}, std::time(nullptr));
  writeFile(quarantine.root / "2000-01-01T000000/Documents/precious", "no manifest: never expired");
  const auto run = vorlan({"expire"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.out, "비움: 묶음 " + old.id + "\n기한이 지난 묶음 1개를 비웠습니다 — 비운 공간 0.0GB\n");
  EXPECT_EQ(quarantine.batches(), (std::vector<std::string>{"2000-01-01T000000", fresh.id}));

  EXPECT_EQ(vorlan({"empty"}).exitCode, 2);
  EXPECT_EQ(quarantine.listBatches().size(), 1u);
  const auto emptied = vorlan({"empty", "--yes"});
  ASSERT_EQ(emptied.exitCode, 0) << emptied.err;
  EXPECT_EQ(emptied.out, "보관함의 묶음 1개, 0.0GB를 지웁니다. 사라지고 되돌릴 수 없습니다.\n비운 공간 0.0GB\n");
  EXPECT_TRUE(quarantine.listBatches().empty());
  EXPECT_TRUE(fs::exists(quarantine.root / "2000-01-01T000000/Documents/precious")) << "may hold the only copy";
}

}  // namespace
}  // namespace vorlan::test

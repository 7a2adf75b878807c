// `vorlan quarantine` on a temporary home: listing, restoring without overwriting, expiry and
// emptying.
#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <optional>

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
    return runCli(home, args, {.env = {{"TZ", "UTC0"}}});
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

TEST_F(QuarantineCommand, RestoreKeepsWhatNowStandsInPlaceAndSaysWhyForEachItemLeftBehind) {
  writeFile(dir / "outside/x", "outside");
  fs::create_directory_symlink(dir / "outside", home / "escape");
  auto batch = quarantine.move({"Documents/a", "Documents/b.txt"}, kLongAgo);
  writeFile(home / "Documents/b.txt", "a new file");
  // A crafted manifest: two huge items (a sum that would wrap), a date no calendar has, and
  // items that point out of the home, through a link out of it, or at nothing in the batch.
  batch.createdEpoch = -9'000'000'000'000'000;
  batch.items.push_back({"../outside/x", "Documents/a", 1});
  batch.items.push_back({"escape/x", "Documents/a", 1});
  batch.items.push_back({"Documents/gone", "Documents/gone", INT64_MAX - 5});
  batch.items.push_back({"Documents/gone2", "Documents/gone2", INT64_MAX - 5});
  writeFile(quarantine.root / batch.id / "manifest.json", encodeManifest(batch));

  const auto list = vorlan({"list"});
  EXPECT_TRUE(list.out.contains("9223372036.9GB · 옮긴 때 날짜 알 수 없음 · 비우는 때 2026-03-21 09:15")) << list.out;
  EXPECT_FALSE(list.out.contains("-0.0GB")) << list.out;
  auto run = vorlan({"restore", batch.id});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out,
            "되돌림: ~/Documents/a\n"
            "남겨 둠: ~/Documents/b.txt — 그 자리에 이미 다른 것이 있습니다\n"
            "남겨 둠: ~/../outside/x — 홈 폴더 밖을 가리키는 경로라서 되돌리지 않았습니다\n"
            "남겨 둠: ~/escape/x — 홈 폴더 밖으로 이어지는 링크를 거치는 경로라서 되돌리지 않았습니다\n"
            "남겨 둠: ~/Documents/gone — 보관함에 그 항목이 없습니다\n"
            "남겨 둠: ~/Documents/gone2 — 보관함에 그 항목이 없습니다\n"
            "6개 중 1개를 되돌렸습니다 — 나머지는 보관함에 남아 있습니다\n");
  EXPECT_EQ(readFile(dir / "outside/x"), "outside");

  // When new files are all that stood in the way, the summary says so.
  const auto second = quarantine.move({"Documents/a", "Documents/b.txt"}, kLongAgo + 60);
  writeFile(home / "Documents/b.txt", "a newer file");
  run = vorlan({"restore", second.id});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out,
            "되돌림: ~/Documents/a\n"
            "남겨 둠: ~/Documents/b.txt — 그 자리에 이미 다른 것이 있습니다\n"
            "2개 중 1개를 되돌렸습니다 — 나머지는 같은 위치에 새 파일이 생겨 보관함에 남아 있습니다\n");
  EXPECT_EQ(readFile(home / "Documents/b.txt"), "a newer file");
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

TEST_F(QuarantineCommand, AnUnusableHomeIsRefusedAndNoOtherIsGuessed) {
  writeFile(dir / "a-file", "x");
  const std::string noHome = "HOME 환경 변수가 없거나 비어 있어 홈 폴더를 알 수 없습니다.",
                    notFolder = "HOME이 가리키는 곳이 폴더가 아닙니다: ";
  for (const auto& [value, line] : std::vector<std::pair<std::optional<std::string>, std::string>>{
           {std::nullopt, noHome}, {"", noHome}, {"/", "HOME이 디스크의 맨 위 폴더(/)라서 홈 폴더로 쓸 수 없습니다: /"},
           {(dir / "a-file").string(), notFolder + (dir / "a-file").string()},
           {(dir / "missing").string(), notFolder + (dir / "missing").string()}}) {
    ProcessOptions options;
    if (value) options.env["HOME"] = *value; else options.unsetEnv.push_back("HOME");
    const auto run = runProcess({cliPath(), "quarantine", "expire"}, options);
    EXPECT_EQ(run.exitCode, 1) << line;
    EXPECT_EQ(run.err, "vorlan: " + line + "\n");
  }
  EXPECT_FALSE(fs::exists("/.vorlan"));
}

}  // namespace
}  // namespace vorlan::test

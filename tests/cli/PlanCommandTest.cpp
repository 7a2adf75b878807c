// `vorlan plan` on a temporary home: the table, the JSON rows and a parent it cannot read.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/TestSupport.hpp"

namespace vorlan::test {
namespace {

namespace fs = std::filesystem;

class PlanCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    // Owned and fresh: purged at once. Orphaned, or under a safe rule: held. Under a review
    // rule: shown, not ticked. Tiny: hidden unless --all.
    writeFile(home / "Applications/Owned.app/Contents/Info.plist",
              "<plist><dict><key>CFBundleIdentifier</key><string>com.owned.app</string></dict></plist>");
    allocateFile(home / "Library/Caches/com.owned.app/blob", 90'000'000);
    allocateFile(home / "Library/Caches/com.gone.tool/blob", 60'000'000);
    allocateFile(home / ".cache/zz-test-tool/blob", 70'000'000);
    allocateFile(home / "Library/Application Support/Mystery Stuff/blob", 55'000'000);
    writeFile(home / ".npm/small-thing/f", "tiny");
  }

  ProcessOutcome plan(std::vector<std::string> args) {
    args.insert(args.begin(), {"plan", "--no-progress"});
    return runCli(home.path(), args);
  }

  TempDir home;
};

TEST_F(PlanCommand, TableShowsVisibleRowsLargestFirstWithTotals) {
  const auto run = plan({});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.err, "");
  size_t at = 0;
  for (const std::string line :
       {"(50MB 미만 1개 숨김 — 모두 보려면 --all)", "[✓] 0.1GB  다시 생김  ~/Library/Caches/com.owned.app",
        "[✓] 0.1GB  다시 생김  ~/.cache/zz-test-tool", "[✓] 0.1GB  주인 없음  ~/Library/Caches/com.gone.tool",
        "→ 지운 앱이 남긴 것입니다", "[ ] 0.1GB  확인 필요  ~/Library/Application Support/Mystery Stuff",
        "체크한 항목 3개 · 선택한 0.2GB", "지금 바로 확보 0.1GB (1개)", "7일 뒤 확보 0.1GB (2개)"}) {
    at = run.out.find(line, at);
    ASSERT_NE(at, std::string::npos) << line << "\n" << run.out;
  }
  EXPECT_FALSE(run.out.contains("small-thing")) << run.out;

  const auto all = plan({"--all"});
  EXPECT_TRUE(all.out.contains("[ ] 0.0GB  확인 필요  ~/.npm/small-thing")) << all.out;
  EXPECT_FALSE(all.out.contains("숨김")) << all.out;
}

TEST_F(PlanCommand, JsonHasEveryFieldInStableOrder) {
  const auto run = plan({"--json"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const auto rows = nlohmann::ordered_json::parse(run.out);
  ASSERT_EQ(rows.size(), 4u);
  std::vector<std::string> keys;
  for (const auto& [key, value] : rows[0].items()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"name", "path", "bytes", "last_changed_epoch", "file_count", "verdict",
                                            "checked", "reason", "delete_paths", "what", "consequence",
                                            "purge_immediately"}));
  EXPECT_EQ(rows[0]["path"], "Library/Caches/com.owned.app");
  EXPECT_EQ(rows[0]["purge_immediately"], true);
  EXPECT_GE(rows[0]["bytes"].get<int64_t>(), 90'000'000);
  EXPECT_EQ(rows[2]["verdict"], "orphan");
  EXPECT_EQ(rows[3]["verdict"], "needs_review");
  EXPECT_EQ(rows[3]["checked"], false);
}

TEST_F(PlanCommand, UnreadableParentIsOneLineOnStderr) {
  if (runningAsRoot()) GTEST_SKIP() << "root reads every folder";
  fs::permissions(home / "Library/Application Support", fs::perms::none);
  const auto run = plan({});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.err, "vorlan: 읽을 수 없어 건너뜀: ~/Library/Application Support\n");
  EXPECT_FALSE(run.out.contains("Mystery Stuff")) << run.out;
  EXPECT_TRUE(run.out.contains("com.gone.tool")) << run.out;
}

}  // namespace
}  // namespace vorlan::test

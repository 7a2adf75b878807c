#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;

// A file that occupies `bytes` on disk without writing them.
void allocate(const fs::path& path, off_t bytes) {
  fs::create_directories(path.parent_path());
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::posix_fallocate(fd, 0, bytes), 0);
  ::close(fd);
}

class PlanCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto& h = home.path();
    // Owned and fresh: purged at once. Orphaned: held. Under a safe rule: held.
    test::writeFile(h / "Applications/Owned.app/Contents/Info.plist",
                    R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>CFBundleIdentifier</key><string>com.owned.app</string></dict></plist>)");
    allocate(h / "Library/Caches/com.owned.app/blob", 90'000'000);
    allocate(h / "Library/Caches/com.gone.tool/blob", 60'000'000);
    allocate(h / ".cache/zz-test-tool/blob", 70'000'000);
    // Under a review rule: shown, not ticked.
    allocate(h / "Library/Application Support/Mystery Stuff/blob", 55'000'000);
    test::writeFile(h / ".npm/small-thing/f", "tiny");
  }

  test::ProcessOutcome plan(std::vector<std::string> args) {
    args.insert(args.begin(), {test::cliPath(), "plan"});
    test::ProcessOptions options;
    options.env["HOME"] = home.path().string();
    return test::runProcess(args, options);
  }

  test::TempDir home;
};

TEST_F(PlanCommand, TableShowsVisibleRowsLargestFirstWithTotals) {
  const auto run = plan({"--no-progress"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.err, "");
  const auto& out = run.out;
  const std::vector<std::string> rowsInOrder{
      "[✓] 0.1GB  다시 생김  ~/Library/Caches/com.owned.app",
      "[✓] 0.1GB  다시 생김  ~/.cache/zz-test-tool",
      "[✓] 0.1GB  주인 없음  ~/Library/Caches/com.gone.tool",
      "[ ] 0.1GB  확인 필요  ~/Library/Application Support/Mystery Stuff",
  };
  size_t at = 0;
  for (const auto& line : rowsInOrder) {
    size_t found = out.find(line, at);
    ASSERT_NE(found, std::string::npos) << line << "\n" << out;
    at = found + line.size();
  }
  EXPECT_NE(out.find("→ 지운 앱이 남긴 것입니다"), std::string::npos) << out;
  EXPECT_EQ(out.find("small-thing"), std::string::npos) << out;
  EXPECT_NE(out.find("50MB 미만 1개 숨김"), std::string::npos) << out;
  EXPECT_NE(out.find("체크한 항목 3개 · 선택한 0.2GB"), std::string::npos) << out;
  EXPECT_NE(out.find("지금 바로 확보 0.1GB (1개)"), std::string::npos) << out;
  EXPECT_NE(out.find("7일 뒤 확보 0.1GB (2개)"), std::string::npos) << out;

  const auto all = plan({"--all", "--no-progress"});
  ASSERT_EQ(all.exitCode, 0) << all.err;
  EXPECT_NE(all.out.find("[ ] 0.0GB  확인 필요  ~/.npm/small-thing"), std::string::npos) << all.out;
  EXPECT_EQ(all.out.find("숨김"), std::string::npos) << all.out;
}

TEST_F(PlanCommand, JsonHasEveryFieldInStableOrder) {
  const auto run = plan({"--json", "--no-progress"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const auto rows = nlohmann::ordered_json::parse(run.out);
  ASSERT_EQ(rows.size(), 4u);
  std::vector<std::string> keys;
  for (const auto& [key, value] : rows[0].items()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"name", "path", "bytes", "last_changed_epoch",
                                            "file_count", "verdict", "checked", "reason",
                                            "delete_paths", "what", "consequence",
                                            "purge_immediately"}));
  EXPECT_EQ(rows[0]["path"], "Library/Caches/com.owned.app");
  EXPECT_EQ(rows[0]["verdict"], "regenerable");
  EXPECT_EQ(rows[0]["purge_immediately"], true);
  EXPECT_EQ(rows[0]["file_count"], 1);
  EXPECT_GE(rows[0]["bytes"].get<int64_t>(), 90'000'000);
  EXPECT_EQ(rows[2]["verdict"], "orphan");
  EXPECT_EQ(rows[3]["verdict"], "needs_review");
  EXPECT_EQ(rows[3]["checked"], false);
  for (size_t i = 1; i < rows.size(); ++i)
    EXPECT_GE(rows[i - 1]["bytes"].get<int64_t>(), rows[i]["bytes"].get<int64_t>());

  const auto all = nlohmann::json::parse(plan({"--json", "--all", "--no-progress"}).out);
  ASSERT_EQ(all.size(), 5u);
  EXPECT_EQ(all[4]["path"], ".npm/small-thing");
}

TEST_F(PlanCommand, ProgressAndUnreadableParentGoToStderr) {
  const auto withProgress = plan({"--json"});
  ASSERT_EQ(withProgress.exitCode, 0) << withProgress.err;
  EXPECT_NE(withProgress.err.find("재는 중"), std::string::npos) << withProgress.err;
  EXPECT_TRUE(nlohmann::json::accept(withProgress.out));

  if (test::runningAsRoot()) GTEST_SKIP() << "root reads every folder";
  fs::permissions(home / "Library/Application Support", fs::perms::none);
  const auto run = plan({"--no-progress"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_NE(run.err.find("읽을 수 없어 건너뜀: ~/Library/Application Support"), std::string::npos)
      << run.err;
  EXPECT_EQ(run.out.find("Mystery Stuff"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("com.gone.tool"), std::string::npos) << run.out;
}

TEST_F(PlanCommand, UnknownArgumentIsAUsageError) {
  const auto run = plan({"--everything"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_NE(run.err.find("--everything"), std::string::npos) << run.err;
  EXPECT_EQ(run.out, "");
}

}  // namespace
}  // namespace vorlan

// `vorlan scan` on a temporary home with a stand-in `du`: its report, its flags and Ctrl-C.
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>

#include "support/TestSupport.hpp"

namespace vorlan::test {
namespace {

namespace fs = std::filesystem;

// A `du` that answers from the tree itself: a folder's kilobytes come from a ".kb" file in it
// (4 when there is none); depth 1 lists the folders below the path and then the path.
constexpr const char* kFakeDu = R"SH(p=$4; kb() { cat "$1/.kb" 2>/dev/null || echo 4; }
if [ "$3" = 1 ]; then for c in "$p"/* "$p"/.[!.]*; do [ -d "$c" ] && [ ! -L "$c" ] && printf '%s\t%s\n' "$(kb "$c")" "$c"; done; fi
printf '%s\t%s\n' "$(kb "$p")" "$p")SH";

class ScanCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    writeScript(bin / "du", kFakeDu);
    writeScript(bin / "docker", "exit 1\n");  // a missing container engine is a gap to survive
    for (auto [folder, kb] : {std::pair{".cache", "2000000"}, {"Library/Caches", "700000"},
                              {"Documents", "900000"}, {"프로젝트", "600000"}})
      writeFile(home / folder / ".kb", std::string(kb) + "\n");
  }

  ProcessOutcome scan(std::vector<std::string> args) {
    args.insert(args.begin(), "scan");
    // The stand-in du comes first on the PATH, and the du engine is the one asked for.
    return runCli(home, args, {.env = {{"PATH", bin.string() + ":/usr/bin:/bin"}, {"VORLAN_SCAN_ENGINE", "du"}}});
  }
  TempDir dir;
  fs::path home = dir / "home", bin = dir / "bin";
};

TEST_F(ScanCommand, BadInputIsOneKoreanLineAndAnExitCode) {
  const struct { std::vector<std::string> args; int exitCode; std::string line; } cases[] = {
      {{"--bogus"}, 2, "알 수 없는 옵션입니다: --bogus"},
      {{"--system-data"}, 2, "--system-data 뒤에 GB 수치를 적어 주세요"},
      {{"--system-data", "-5"}, 2, "시스템 데이터 수치를 읽을 수 없습니다: '-5'"},
      {{"--system-data", "1.2.3"}, 2, "시스템 데이터 수치를 읽을 수 없습니다: '1.2.3'"},
      {{"--engine", "fast"}, 2, "알 수 없는 측정 방식입니다: 'fast' — walk 또는 du 를 적어 주세요."},
      {{"--engine"}, 2, "--engine 뒤에 walk 또는 du 를 적어 주세요."},
      {{"--save", "/dev/null/folder"}, 1, "리포트를 저장할 폴더를 만들 수 없습니다: /dev/null/folder\n"},
  };
  for (const auto& c : cases) {
    const auto r = scan(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args.back();
    EXPECT_TRUE(r.err.starts_with("vorlan: " + c.line)) << r.err;
    EXPECT_EQ(r.out, "");
  }
}

// What the report says is the report's own test; here the figure is read as people type it and
// each block reaches the terminal, or the JSON alone reaches stdout.
TEST_F(ScanCommand, PrintsTheReportWithTheReconciliationOrJson) {
  const auto r = scan({"--system-data", "12,5", "--no-progress"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.err, "");
  for (const char* line : {"설정이 말하는 시스템 데이터: 12.5GB\n실측으로 정체를 찾은 것: 2.8GB (22%)\n",
                           "=== Vorlan 시스템 데이터 해부 리포트 (읽기 전용) ===",
                           "     2.0GB  ~/.cache — CLI 도구 캐시 — 재생성됨", "스캔 소요: "})
    EXPECT_TRUE(r.out.contains(line)) << line << "\n" << r.out;

  // JSON on stdout while the progress goes to stderr.
  const auto json = scan({"--json", "--system-data", "80"});
  ASSERT_EQ(json.exitCode, 0) << json.err;
  for (const char* part : {"1/3 알려진 경로 측정 중", "3/3 컨테이너·스냅샷 확인 중", "~/.cache"})
    EXPECT_TRUE(json.err.contains(part)) << json.err;
  const auto doc = nlohmann::json::parse(json.out);  // fails if anything else reached stdout
  EXPECT_EQ(doc["system_data_gb_manual"], 80.0);
}

// The Desktop is made when the home has none. Naming the file and replacing the day's earlier
// one are the report's own tests.
TEST_F(ScanCommand, SaveWritesTheReportIntoAWritableFolderOrRefusesBeforeScanning) {
  const auto saved = scan({"--save", "--no-progress"});
  ASSERT_EQ(saved.exitCode, 0) << saved.err;
  const std::vector<fs::directory_entry> files(fs::directory_iterator(home / "Desktop"), {});
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(saved.err, "리포트를 저장했습니다: " + files[0].path().string() + "\n");
  EXPECT_TRUE(readFile(files[0].path()).contains("0.7GB  ~/Library/Caches"));

  if (runningAsRoot()) GTEST_SKIP() << "root writes anywhere";
  fs::permissions(home / "Desktop", fs::perms::owner_read | fs::perms::owner_exec);
  const auto locked = scan({"--save"});
  EXPECT_EQ(locked.exitCode, 1);
  // No progress line before it: no scan ran.
  EXPECT_EQ(locked.err, "vorlan: 리포트를 저장할 폴더에 쓸 수 없습니다: " + (home / "Desktop").string() + "\n");
}

TEST_F(ScanCommand, CtrlCStopsTheRunningDuAndExits130) {
  // This du records itself, interrupts vorlan as Ctrl-C would, then hangs until it is ended.
  writeScript(bin / "du", "echo $$ > '" + (dir / "du.pid").string() +
                              "'\nkill -INT $PPID\nexec sleep 300 2>/dev/null\n");
  const auto r = scan({});
  const pid_t duPid = std::atoi(readFile(dir / "du.pid").c_str());
  ASSERT_GT(duPid, 0) << "the fake du never ran";
  EXPECT_EQ(r.exitCode, 130) << r.err;
  EXPECT_TRUE(r.err.ends_with("스캔을 취소했습니다.\n")) << r.err;
  EXPECT_NE(::kill(duPid, 0), 0) << "du was left running";
}

}  // namespace
}  // namespace vorlan::test

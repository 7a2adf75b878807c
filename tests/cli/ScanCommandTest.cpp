#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "support/TestSupport.hpp"

namespace vorlan::test {
namespace {

// A `du` that answers from the tree itself: a folder's kilobytes come from a ".kb" file in it
// (4 when there is none), depth 1 lists the folders below the path and then the path.
constexpr const char* kFakeDu = R"SH(
depth=$3; p=$4
kb() { if [ -f "$1/.kb" ]; then cat "$1/.kb"; else echo 4; fi; }
if [ "$depth" = 1 ]; then
  for c in "$p"/* "$p"/.[!.]*; do
    if [ -d "$c" ] && [ ! -L "$c" ]; then printf '%s\t%s\n' "$(kb "$c")" "$c"; fi
  done
fi
printf '%s\t%s\n' "$(kb "$p")" "$p"
)SH";

class ScanCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    writeScript(bin / "du", kFakeDu);
    // No container engine or snapshot tools in these tests: those are gaps a scan must survive.
    writeScript(bin / "docker", "exit 1\n");
    writeFile(home / ".cache/.kb", "2000000\n");
    writeFile(home / "Library/Caches/.kb", "700000\n");
    writeFile(home / "Documents/.kb", "900000\n");
    writeFile(home / "프로젝트/.kb", "600000\n");
    std::filesystem::create_directories(home / ".vorlan/quarantine");
  }

  ProcessOutcome scan(std::vector<std::string> args, ProcessOptions options = {}) {
    args.insert(args.begin(), {cliPath(), "scan"});
    options.env["HOME"] = home.string();
    if (!options.env.count("PATH")) options.env["PATH"] = bin.string() + ":/usr/bin:/bin";
    return runProcess(args, options);
  }

  TempDir dir;
  std::filesystem::path home = dir / "home";
  std::filesystem::path bin = dir / "bin";
};

TEST_F(ScanCommand, BadInputIsOneKoreanLineAndAnExitCode) {
  struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::string message;
  };
  const Case cases[] = {
      {{"--bogus"}, 2, "알 수 없는 옵션입니다: --bogus"},
      {{"--system-data"}, 2, "--system-data 뒤에 GB 수치를 적어 주세요"},
      {{"--system-data", "abc"}, 2, "시스템 데이터 수치를 읽을 수 없습니다: 'abc'"},
      {{"--system-data", "-5"}, 2, "시스템 데이터 수치를 읽을 수 없습니다: '-5'"},
      {{"--system-data", "1.2.3"}, 2, "시스템 데이터 수치를 읽을 수 없습니다"},
      {{"--save", "/nonexistent/folder"}, 1, "리포트를 저장할 폴더가 없습니다: /nonexistent/folder"},
  };
  for (const auto& c : cases) {
    auto r = scan(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args[0];
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
  }
}

TEST_F(ScanCommand, PrintsTheReportWithTheReconciliation) {
  auto r = scan({"--system-data", "12,5", "--no-progress"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(r.err.empty()) << r.err;
  for (const char* expected : {
           "설정이 말하는 시스템 데이터: 12.5GB",
           "=== Vorlan 시스템 데이터 해부 리포트 (읽기 전용) ===",
           "     2.0GB  ~/.cache — CLI 도구 캐시 — 재생성됨",
           "     0.7GB  ~/Library/Caches — 앱 캐시 — 재생성됨",
           "  ~/프로젝트 — 규칙에 없는 항목 — 직접 확인 필요",
           "스캔 소요: ",
       })
    EXPECT_NE(r.out.find(expected), std::string::npos) << expected << "\n" << r.out;
  // Our own folder never shows up.
  EXPECT_EQ(r.out.find(".vorlan"), std::string::npos);
}

TEST_F(ScanCommand, JsonPrintsOnlyTheAppendix) {
  auto r = scan({"--json", "--system-data", "80", "--no-progress"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  auto doc = nlohmann::json::parse(r.out);
  EXPECT_EQ(doc["system_data_gb_manual"], 80.0);
  bool sawCache = false;
  for (const auto& f : doc["findings"])
    if (f["path"] == ".cache") {
      sawCache = true;
      EXPECT_EQ(f["size_bytes"], 2000000LL * 1024);
      EXPECT_EQ(f["grade"], "SAFE");
    }
  EXPECT_TRUE(sawCache) << r.out;
}

TEST_F(ScanCommand, ProgressGoesToStderrUnlessSilenced) {
  auto withProgress = scan({});
  ASSERT_EQ(withProgress.exitCode, 0);
  EXPECT_NE(withProgress.err.find("1/3 알려진 경로 측정 중"), std::string::npos);
  EXPECT_NE(withProgress.err.find("3/3 컨테이너·스냅샷 확인 중"), std::string::npos);
  EXPECT_NE(withProgress.err.find("~/.cache"), std::string::npos);
  EXPECT_EQ(withProgress.out.find("1/3"), std::string::npos);
}

TEST_F(ScanCommand, SaveWritesOneFilePerDayAndSaysWhere) {
  auto desktop = home / "Desktop";
  std::filesystem::create_directories(desktop);
  auto first = scan({"--save", "--no-progress"});
  ASSERT_EQ(first.exitCode, 0) << first.err;
  writeFile(home / "Library/Caches/.kb", "800000\n");
  auto second = scan({"--no-progress", "--save"});
  ASSERT_EQ(second.exitCode, 0) << second.err;

  std::vector<std::filesystem::path> files;
  for (const auto& e : std::filesystem::directory_iterator(desktop)) files.push_back(e.path());
  ASSERT_EQ(files.size(), 1u);
  const auto name = files[0].filename().string();
  EXPECT_TRUE(name.starts_with("Vorlan-리포트-") && name.ends_with(".md")) << name;
  EXPECT_NE(second.err.find("리포트를 저장했습니다: " + files[0].string()), std::string::npos);
  const auto text = readFile(files[0]);
  EXPECT_TRUE(text.starts_with("# Vorlan 시스템 데이터 해부 리포트 — "));
  EXPECT_NE(text.find("0.8GB  ~/Library/Caches"), std::string::npos) << "second save replaces the first";

  auto elsewhere = dir / "reports";
  std::filesystem::create_directories(elsewhere);
  auto third = scan({"--save", elsewhere.string(), "--json", "--no-progress"});
  ASSERT_EQ(third.exitCode, 0) << third.err;
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(elsewhere), {}), 1);
  EXPECT_TRUE(nlohmann::json::accept(third.out)) << third.out;
}

TEST_F(ScanCommand, UnwritableSaveFolderFailsBeforeScanning) {
  if (runningAsRoot()) GTEST_SKIP() << "root writes anywhere";
  auto locked = dir / "locked";
  std::filesystem::create_directories(locked);
  std::filesystem::permissions(locked, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  auto r = scan({"--save", locked.string()});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("리포트를 저장할 폴더에 쓸 수 없습니다"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("1/3"), std::string::npos) << "no scan ran";
}

TEST_F(ScanCommand, MissingDuStillEndsWithAReport) {
  std::filesystem::remove(bin / "du");
  ProcessOptions options;
  options.env["PATH"] = bin.string();  // no du anywhere
  auto r = scan({"--no-progress"}, options);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("즉시 안전 삭제 가능: 0.0GB"), std::string::npos) << r.out;
}

TEST_F(ScanCommand, CtrlCStopsTheRunningDuAndExits130) {
  const auto pidFile = dir / "du.pid";
  // This du records itself and its parent (vorlan), then hangs until it is terminated.
  writeScript(bin / "du", "echo $$ $PPID > '" + pidFile.string() + "'\nexec sleep 60\n");
  pid_t duPid = 0;
  std::thread interrupter([&] {
    for (int i = 0; i < 200 && duPid == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      auto text = readFile(pidFile);
      pid_t parent = 0;
      if (std::sscanf(text.c_str(), "%d %d", &duPid, &parent) == 2) ::kill(parent, SIGINT);
    }
  });
  ProcessOptions options;
  options.timeoutSeconds = 30;
  auto r = scan({}, options);
  interrupter.join();
  ASSERT_NE(duPid, 0) << "the fake du never ran";
  EXPECT_EQ(r.exitCode, 130) << r.err;
  EXPECT_NE(r.err.find("스캔을 취소했습니다."), std::string::npos) << r.err;
  EXPECT_TRUE(r.out.empty());
  EXPECT_EQ(::kill(duPid, 0), -1) << "du was left running";
}

}  // namespace
}  // namespace vorlan::test

// `vorlan`: Vorlan's core from a terminal, with the program's own Korean texts.
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <climits>
#include <exception>
#include <filesystem>
#include <fmt/format.h>

#include "Commands.hpp"
#include "Version.hpp"
#include "platform/HomeFolder.hpp"
#include "quarantine/QuarantineRecords.hpp"

namespace {

constexpr std::string_view kHelp =
    R"(Vorlan — '시스템 데이터'가 무엇으로 차 있는지 재고, 안전하게 비울 수 있는 것을 찾습니다.

사용법:
  vorlan scan [--system-data GB] [--save [DIR]] [--json] [--no-progress] [--engine walk|du] [--share [--share-preview]]
      홈 폴더를 실측하고 규칙표로 등급을 매겨 리포트를 출력합니다 (읽기 전용).
      --system-data GB  설정 > 일반 > 저장 공간의 '시스템 데이터' 수치 (예: 123.4)
      --save [DIR]      Markdown 리포트 파일도 저장 (기본: ~/Desktop)
      --json            텍스트 리포트 대신 JSON 부록만 출력
      --no-progress     진행 상황을 표시하지 않음
      --engine walk|du  측정 방식 (기본 walk, 환경 변수 VORLAN_SCAN_ENGINE 으로도 지정)
                        walk: 홈 폴더를 스레드 몇 개로 한 번만 읽고 모든 질문에 답함 (빠름)
                        du:   경로마다 시스템의 du -xk 를 실행 (예전 방식)
                        두 방식의 수치는 같습니다: 할당된 블록을 KiB 로 올림, 하드 링크는
                        질문마다 한 번, 다른 파일 시스템(마운트 지점) 아래는 세지 않음
      --share           익명 통계 전송에 동의 (이번 실행만; 통계 서버가 설정된 빌드에서만 전송)
      --share-preview   보낼 JSON을 그대로 보여 주고 아무것도 보내지 않음
  vorlan plan [--json] [--all] [--no-progress] [--explain]
      정리 계획을 폴더별 판정과 함께 보여 줍니다 (아무것도 지우지 않음).
      --all             작은 폴더까지 모두 표시
      --explain         모르는 공개 폴더 이름을 설명 서비스에 물어봄 (보낼 JSON을 먼저 표시)
  vorlan clean [--dry-run] [--yes] [--share] [PATH…]
      체크한 폴더를 7일 보관함으로 옮기거나, 다시 생기는 캐시는 바로 비웁니다.
  vorlan quarantine [list | restore ID | empty [--yes] | expire | recover]
      보관함의 묶음을 보고, 되돌리고, 비웁니다.
  vorlan --version | --help
)";

// Walks of deep trees hold one open folder per level; macOS starts programs with a soft limit
// of 256 descriptors, so take what the hard limit allows.
void raiseOpenFileLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
  rlimit wanted = limit;
  wanted.rlim_cur = limit.rlim_max;
#ifdef OPEN_MAX
  // macOS refuses a soft limit above OPEN_MAX even when the hard limit is unlimited.
  if (wanted.rlim_cur > OPEN_MAX) wanted.rlim_cur = OPEN_MAX;
#endif
  ::setrlimit(RLIMIT_NOFILE, &wanted);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace vorlan::cli;
  // Before any thread starts, so that Ctrl-C reaches only the watcher.
  InterruptWatcher interrupts;
  raiseOpenFileLimit();

  std::vector<std::string> args(argv + 1, argv + argc);
  CliContext ctx;
  // With links and ".." resolved, so that every check of a path against it looks at the same
  // place the kernel will use.
  const vorlan::HomeFolder home = vorlan::homeFolderFrom(std::getenv("HOME"));
  ctx.home = home.path;
  ctx.stdinIsTerminal = ::isatty(STDIN_FILENO);
  ctx.stdoutIsTerminal = ::isatty(STDOUT_FILENO);
  ctx.stderrIsTerminal = ::isatty(STDERR_FILENO);
  ctx.stop = interrupts.token();
  ctx.now = std::chrono::duration_cast<std::chrono::seconds>(
                std::chrono::system_clock::now().time_since_epoch())
                .count();

  if (args.empty() || args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
    fmt::print("{}", kHelp);
    return args.empty() ? exitUsage : exitOk;
  }
  if (args[0] == "--version" || args[0] == "-V") {
    fmt::print("vorlan {}\n", vorlan::Telemetry::appVersion);
    for (const auto& line : versionNotes(ctx)) fmt::print("{}\n", line);
    return exitOk;
  }
  if (ctx.home.empty()) return failure(home.problem);

  const std::string command = args[0];
  args.erase(args.begin());
  try {
    if (command == "scan") return runScan(args, ctx);
    if (command == "plan") return runPlan(args, ctx);
    if (command == "clean") return runClean(args, ctx);
    if (command == "quarantine") return runQuarantine(args, ctx);
  } catch (const std::exception& e) {
    return failure("예기치 못한 오류로 중단했습니다: " + vorlan::describeQuarantineFailure(e));
  }
  return usageError(fmt::format("알 수 없는 명령입니다: {}", command));
}

// `vorlan scan`: measure the home folder, balance it against the stated figure, print the report.
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <variant>
#include <fmt/format.h>

#include "Cancelled.hpp"
#include "Commands.hpp"
#include "NetworkCli.hpp"
#include "report/Ledger.hpp"
#include "report/MarkdownReport.hpp"
#include "report/TextReport.hpp"
#include "scan/DeepScanner.hpp"
#include "scan/ProcessToolRunner.hpp"

namespace vorlan::cli {
namespace {

struct ScanOptions {
  std::optional<double> systemDataGB;
  std::optional<std::filesystem::path> saveFolder;  // set when --save was given
  bool json = false;
  bool noProgress = false;
  bool share = false;         // the user's consent for this run
  bool sharePreview = false;  // show what would be sent, send nothing
  std::optional<ScanEngine> engine;  // --engine; otherwise VORLAN_SCAN_ENGINE, then the walk
};

// Parses the options; on bad input returns the Korean line to show.
std::variant<ScanOptions, std::string> parseScanOptions(const std::vector<std::string>& args,
                                                        const CliContext& ctx) {
  ScanOptions options;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    std::optional<std::string> inlineValue;
    std::string name = arg;
    if (auto eq = arg.find('='); arg.starts_with("--") && eq != std::string::npos) {
      name = arg.substr(0, eq);
      inlineValue = arg.substr(eq + 1);
    }
    // The option's value: after "=", or the next argument, whatever it starts with.
    auto optionValue = [&]() -> std::optional<std::string> {
      if (inlineValue) return *inlineValue;
      if (i + 1 < args.size()) return args[++i];
      return std::nullopt;
    };
    if (name == "--system-data") {
      const auto given = optionValue();
      if (!given) return std::string("--system-data 뒤에 GB 수치를 적어 주세요 (예: --system-data 123.4).");
      const std::string& value = *given;
      auto figure = parseDecimalFigure(value);
      if (!figure)
        return fmt::format("시스템 데이터 수치를 읽을 수 없습니다: '{}' — 0 이상의 숫자를 GB 단위로 적어 주세요 (예: 123.4).",
                           value);
      options.systemDataGB = *figure;
    } else if (name == "--save") {
      if (inlineValue) {
        options.saveFolder = *inlineValue;
      } else if (i + 1 < args.size() && !args[i + 1].starts_with("-")) {
        options.saveFolder = args[++i];
      } else {
        options.saveFolder = ctx.home / "Desktop";
      }
      if (options.saveFolder->empty()) return std::string("--save 뒤의 폴더 이름이 비어 있습니다.");
    } else if (name == "--engine") {
      const auto given = optionValue();
      if (!given) return std::string("--engine 뒤에 walk 또는 du 를 적어 주세요.");
      options.engine = scanEngineFromRaw(*given);
      if (!options.engine) return fmt::format("알 수 없는 측정 방식입니다: '{}' — walk 또는 du 를 적어 주세요.", *given);
    } else if (arg == "--json") {
      options.json = true;
    } else if (arg == "--no-progress") {
      options.noProgress = true;
    } else if (arg == "--share") {
      options.share = true;
    } else if (arg == "--share-preview") {
      options.share = options.sharePreview = true;
    } else {
      return fmt::format("알 수 없는 옵션입니다: {}", arg);
    }
  }
  return options;
}

// The folder named by --save is made, with any missing parents (many homes have no Desktop),
// and checked before the scan: a folder that cannot be written should not cost a whole scan.
std::optional<std::string> checkSaveFolder(const std::filesystem::path& folder) {
  std::error_code ec;
  std::filesystem::create_directories(folder, ec);
  if (!std::filesystem::is_directory(folder, ec))
    return fmt::format("리포트를 저장할 폴더를 만들 수 없습니다: {}", folder.string());
  if (::access(folder.c_str(), W_OK | X_OK) != 0)
    return fmt::format("리포트를 저장할 폴더에 쓸 수 없습니다: {}", folder.string());
  return std::nullopt;
}

std::string progressText(const ScanProgress& p) {
  if (p.detail) return fmt::format("{}  {}", p.message, *p.detail);
  return p.message;
}

// The text shown on the terminal: what the report file holds, without its Markdown fences.
std::string terminalReport(const DeepScanResult& result, std::optional<double> systemDataGB,
                           double durationS) {
  std::string out;
  auto addBlock = [&out](const std::vector<std::string>& lines) {
    if (lines.empty()) return;
    for (const auto& line : lines) out += line + "\n";
    out += "\n";
  };
  addBlock(balanceSheet(result, systemDataGB));
  if (auto note = icloudNote(result)) addBlock({*note});
  addBlock(reconcile(result, systemDataGB));
  out += renderReport(result, reportMinBytes);
  out += fmt::format("\n\n스캔 소요: {:.0f}초\n", durationS);
  return out;
}

}  // namespace

int runScan(const std::vector<std::string>& args, const CliContext& ctx) {
  auto parsed = parseScanOptions(args, ctx);
  if (auto* problem = std::get_if<std::string>(&parsed)) return usageError(*problem);
  const ScanOptions options = std::get<ScanOptions>(parsed);
  if (options.saveFolder)
    if (auto problem = checkSaveFolder(*options.saveFolder)) return failure(*problem);

  if (options.share) printConsent();
  ProgressLine progress(progressModeFor(ctx, options.noProgress));
  ScanEngine engine = ScanEngine::walk;
  if (options.engine) {
    engine = *options.engine;
  } else if (const char* named = std::getenv("VORLAN_SCAN_ENGINE"); named && *named) {
    engine = scanEngineFromEnvironment(named);
    if (!scanEngineFromRaw(named))
      warn(fmt::format("VORLAN_SCAN_ENGINE 값 '{}' 을(를) 알 수 없어 walk 로 측정합니다.", named));
  }
  ProcessToolRunner runner;
  DeepScanner scanner(runner, ctx.home, defaultHasBinary, engine);
  const auto started = std::chrono::steady_clock::now();
  DeepScanResult result;
  try {
    result = scanner.collect([&progress](const ScanProgress& p) { progress.show(progressText(p)); },
                             ctx.stop);
  } catch (const Cancelled&) {
    progress.finish();
    fmt::print(stderr, "스캔을 취소했습니다.\n");
    return exitCancelled;
  }
  progress.finish();
  const double durationS =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

  if (options.json)
    fmt::print("{}\n", jsonAppendix(result, options.systemDataGB));
  else
    fmt::print("{}", terminalReport(result, options.systemDataGB, durationS));
  std::fflush(stdout);
  if (options.share)
    shareScanReport(result, options.systemDataGB, durationS, options.sharePreview, ctx);

  if (options.saveFolder) {
    const std::string date = isoToday(ctx.now);
    try {
      auto markdown = renderMarkdown(result, options.systemDataGB, durationS, date);
      auto where = writeReportFile(markdown, *options.saveFolder, date);
      fmt::print(stderr, "리포트를 저장했습니다: {}\n", where.string());
    } catch (const std::exception& e) {
      return failure(fmt::format("리포트를 저장하지 못했습니다: {}", e.what()));
    }
  }
  return exitOk;
}

}  // namespace vorlan::cli

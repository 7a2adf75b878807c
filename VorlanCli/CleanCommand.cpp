// `vorlan clean`: carries out a cleanup from the terminal. It shows what will be skipped,
// purged at once and held for seven days, asks before acting, and then prints the account.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fmt/format.h>
#include <set>

#include "Commands.hpp"
#include "NetworkCli.hpp"
#include "PlanLoading.hpp"
#include "cleanup/AppOwnership.hpp"
#include "cleanup/CleanupCopy.hpp"
#include "cleanup/CleanupExecution.hpp"
#include "cleanup/CleanupSession.hpp"
#include "quarantine/Quarantine.hpp"
#include "report/CleanupLedger.hpp"
#include "scan/Classification.hpp"

namespace vorlan::cli {

namespace {

struct CleanOptions {
  bool dryRun = false;
  bool yes = false;
  bool noProgress = false;
  bool share = false;  // the user's consent to send this run's cleanup events
  std::vector<std::string> paths;
};

std::string padLeft(std::string_view text, int columns) {
  return std::string(static_cast<size_t>(std::max(0, columns - displayWidth(text))), ' ') + std::string(text);
}

// Turns what the user typed into a home-relative path, or says in one line why it can't be.
std::optional<std::string> checkTypedPath(const std::string& typed, const Quarantine& quarantine,
                                          const std::filesystem::path& home, std::string& problem) {
  std::string path = typed;
  if (path == "~") path.clear();
  if (path.starts_with("~/")) path = path.substr(2);
  if (path.starts_with('/')) {
    // An absolute path is taken when it lies in the home folder; the check below decides.
    auto relative = std::filesystem::path(path).lexically_normal().lexically_relative(home.lexically_normal());
    const std::string text = relative.string();
    if (text == ".") {
      problem = fmt::format("홈 폴더 자체는 지울 수 없습니다: {}", typed);
      return std::nullopt;
    }
    if (relative.empty() || text == ".." || text.starts_with("../")) {
      problem = fmt::format("홈 폴더 밖의 경로는 지울 수 없습니다: {}", typed);
      return std::nullopt;
    }
    path = text;
  }
  HomePath checked;
  try {
    checked = quarantine.resolveInsideHome(path);
  } catch (const QuarantineError&) {
    const auto lexical = (home / path).lexically_normal();
    const auto inside = lexical.lexically_relative(home.lexically_normal()).string();
    if (inside.empty() || inside == ".")
      problem = fmt::format("홈 폴더 자체는 지울 수 없습니다: {}", typed);
    else if (inside == ".." || inside.starts_with("../"))
      problem = fmt::format("홈 폴더 밖의 경로는 지울 수 없습니다: {}", typed);
    else
      problem = fmt::format("홈 폴더 밖으로 이어지는 링크를 거치는 경로는 지울 수 없습니다: {}", typed);
    return std::nullopt;
  }
  if (isAtOrUnder(checked.relative, ".vorlan")) {
    problem = fmt::format("Vorlan 자신의 보관 폴더는 지울 수 없습니다: ~/{}", checked.relative);
    return std::nullopt;
  }
  struct stat st;
  if (::lstat(checked.location.c_str(), &st) != 0) {
    problem = fmt::format("없는 경로입니다: ~/{}", checked.relative);
    return std::nullopt;
  }
  return checked.relative;
}

// Duplicates go, and so does a path inside another one given: moving the outer folder takes it.
std::vector<std::string> withoutNested(std::vector<std::string> paths) {
  std::sort(paths.begin(), paths.end());
  paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
  std::vector<std::string> kept;
  for (const auto& path : paths) {
    bool inside = std::any_of(kept.begin(), kept.end(), [&](const std::string& k) { return isAtOrUnder(path, k); });
    if (!inside) kept.push_back(path);
  }
  return kept;
}

struct SizedPath {
  std::string path;
  int64_t bytes = 0;
};

std::vector<SizedPath> sized(const std::vector<std::string>& paths, const std::vector<CleanupItem>& items,
                             const std::filesystem::path& home) {
  std::vector<SizedPath> result;
  for (const auto& path : paths) {
    auto row = std::find_if(items.begin(), items.end(), [&](const CleanupItem& i) { return i.path == path; });
    result.push_back({path, row != items.end() ? row->bytes : measureItem(home / path)});
  }
  return result;
}

int64_t total(const std::vector<SizedPath>& paths) {
  int64_t sum = 0;
  for (const auto& p : paths) sum = addBytes(sum, p.bytes);
  return sum;
}

void printGroup(std::string_view title, const std::vector<SizedPath>& paths, int width) {
  if (paths.empty()) return;
  fmt::print("{} — {}개 · {}\n", title, paths.size(), formatGB(total(paths)));
  for (const auto& p : paths) fmt::print("  {}  ~/{}\n", padLeft(formatGB(p.bytes), width), p.path);
}

void printFailures(const std::optional<QuarantineBatch>& batch, const FailureReasons& reasons) {
  if (!batch) return;
  for (const auto& path : batch->failures) {
    auto why = reasons.find(path);
    fmt::print("옮기지 못해 그대로 둠: ~/{}{}\n", path, why == reasons.end() ? "" : " — " + why->second);
  }
}

}  // namespace

int runClean(const std::vector<std::string>& args, const CliContext& ctx) {
  CleanOptions options;
  bool optionsEnded = false;
  for (const auto& arg : args) {
    if (!optionsEnded && arg == "--") {
      optionsEnded = true;
    } else if (!optionsEnded && arg == "--dry-run") {
      options.dryRun = true;
    } else if (!optionsEnded && (arg == "--yes" || arg == "-y")) {
      options.yes = true;
    } else if (!optionsEnded && arg == "--no-progress") {
      options.noProgress = true;
    } else if (!optionsEnded && arg == "--share") {
      options.share = true;
    } else if (!optionsEnded && arg.starts_with("-")) {
      return usageError(fmt::format("'clean'이 모르는 인자입니다: {}", arg));
    } else {
      options.paths.push_back(arg);
    }
  }

  if (options.share) printConsent();
  const Quarantine quarantine(Quarantine::defaultRoot(ctx.home), ctx.home);
  try {
    quarantine.batches();  // a store that leads out of the home folder is refused before the plan
  } catch (const QuarantineError& error) {
    return failure(describeQuarantineFailure(error));
  }
  // Every typed path is checked before anything is measured or moved; one bad path stops all.
  std::vector<std::string> requested;
  bool refused = false;
  for (const auto& typed : options.paths) {
    std::string problem;
    if (auto path = checkTypedPath(typed, quarantine, ctx.home, problem))
      requested.push_back(*path);
    else
      refused = (failure(problem), true);
  }
  if (refused) return exitFailure;
  requested = withoutNested(std::move(requested));

  const auto dictionary = KnowledgeDictionary::bundled();
  auto loaded = loadPlanWithProgress(ctx, dictionary, options.noProgress);
  if (!loaded) return exitCancelled;
  const LoadedPlan& plan = *loaded;

  // A row the plan keeps (wallets, address books, …) or explains only by narrower paths is
  // never carried out, also when it is named by hand.
  bool forbidden = false;
  for (const auto& path : requested) {
    auto row = std::find_if(plan.items.begin(), plan.items.end(), [&](const CleanupItem& i) { return i.path == path; });
    if (row != plan.items.end() && !row->isExecutable())
      forbidden = (failure(fmt::format("정리 계획에서 지울 수 없다고 본 항목입니다: ~/{}", path)), true);
  }
  if (forbidden) return exitFailure;

  std::vector<std::string> ticked;
  if (options.paths.empty()) {
    const auto ticks = initialChecked(plan.items);
    ticked.assign(ticks.begin(), ticks.end());
  } else {
    ticked = requested;
  }
  const std::set<std::string> checked(ticked.begin(), ticked.end());

  const CleanupSplit preview = splitForExecution(ticked, plan.items, runningBundleIDs());
  const auto skipped = sized(preview.skippedInUse, plan.items, ctx.home);
  const auto immediate = sized(preview.immediate, plan.items, ctx.home);
  const auto held = sized(preview.held, plan.items, ctx.home);
  int width = 0;
  for (const auto* group : {&skipped, &immediate, &held})
    for (const auto& p : *group) width = std::max(width, displayWidth(formatGB(p.bytes)));

  printGroup("실행 중이라 건너뜀 (앱을 종료한 뒤 다시 시도해 주세요)", skipped, width);
  printGroup("바로 비움 (다시 만들어지는 캐시)", immediate, width);
  printGroup("7일 보관 (그때까지 되돌릴 수 있음)", held, width);
  if (immediate.empty() && held.empty()) {
    fmt::print("지울 항목이 없습니다.\n");
    // The user's refusals still count, as they do after a run that deleted something.
    if (options.share && !options.dryRun)
      if (auto refused = refusedEvent(plan.items, checked)) shareCleanupEvents({*refused}, dictionary, ctx);
    return exitOk;
  }
  fmt::print("{}\n{}\n", immediateFigure(total(immediate)), heldFigure(total(held)));

  if (options.dryRun) {
    fmt::print("미리 보기입니다. 아무것도 바꾸지 않았습니다.\n");
    return exitOk;
  }
  if (!options.yes) {
    if (!ctx.stdinIsTerminal)
      return usageError("터미널에서 실행하지 않을 때는 --yes 를 붙여야 지웁니다. 아무것도 바꾸지 않았습니다.");
    if (!confirmOnTerminal("이대로 진행할까요?", ctx)) {
      if (ctx.stop.stop_requested()) {
        warn("중단했습니다. 아무것도 옮기지 않았습니다.");
        return exitCancelled;
      }
      fmt::print("취소했습니다. 아무것도 바꾸지 않았습니다.\n");
      return exitFailure;
    }
  }
  if (ctx.stop.stop_requested()) {
    warn("중단했습니다. 아무것도 옮기지 않았습니다.");
    return exitCancelled;
  }

  // One last look at what runs: an application started meanwhile keeps its folder.
  const CleanupOutcome outcome =
      executeCleanup(ticked, plan.items, checked, runningBundleIDs(), quarantine, ctx.now, ctx.stop);

  if (!outcome.skippedInUse.empty()) {
    std::vector<std::string> shown;
    for (const auto& path : outcome.skippedInUse) shown.push_back("~/" + path);
    fmt::print("{}\n", skippedInUseLine(shown));
  }
  if (outcome.immediateBatch && !outcome.immediateBatch->items.empty()) {
    const auto& batch = *outcome.immediateBatch;
    if (outcome.immediatePurged)
      fmt::print("바로 비움: {}개 · {}\n", batch.items.size(), formatGB(outcome.freedBytes));
    else
      fmt::print("바로 비우지 못해 보관함에 두었습니다: 묶음 {}\n", batch.id);
  }
  if (outcome.heldBatch && !outcome.heldBatch->items.empty()) {
    int64_t bytes = 0;
    for (const auto& item : outcome.heldBatch->items) bytes = addBytes(bytes, item.bytes);
    fmt::print("보관함으로 옮김: {}개 · {} — 묶음 {}\n", outcome.heldBatch->items.size(), formatGB(bytes),
               outcome.heldBatch->id);
  }
  printFailures(outcome.heldBatch, outcome.failureReasons);
  printFailures(outcome.immediateBatch, outcome.failureReasons);
  if (options.share) shareCleanupEvents(outcome.events, dictionary, ctx);

  std::vector<QuarantineBatch> batches;
  try {
    batches = quarantine.listBatches();
  } catch (const QuarantineError&) {
    // Refused before anything moved; the error line below says why.
  }
  const auto ledger = renderCleanupLedger(cleanupLedger(batches, outcome.freedBytes));
  if (!ledger.empty()) fmt::print("\n");
  for (const auto& l : ledger) fmt::print("{}\n", l);
  std::vector<std::string> kept;
  if (outcome.heldBatch && !outcome.heldBatch->items.empty()) kept.push_back(outcome.heldBatch->id);
  if (outcome.immediateBatch && !outcome.immediatePurged && !outcome.immediateBatch->items.empty())
    kept.push_back(outcome.immediateBatch->id);
  for (const auto& id : kept) fmt::print("되돌리려면: vorlan quarantine restore {}\n", id);

  if (outcome.executeError) {
    failure(*outcome.executeError);
    // What a failed move had already taken waits in a folder without a manifest.
    try {
      if (!quarantine.orphanedFolders().empty()) warn("옮기던 것을 제자리로 돌리려면: vorlan quarantine recover");
    } catch (const QuarantineError&) {
    }
    return exitFailure;
  }
  const bool allMoved = (!outcome.heldBatch || outcome.heldBatch->failures.empty()) &&
                        (!outcome.immediateBatch || outcome.immediateBatch->failures.empty());
  if (ctx.stop.stop_requested()) {
    warn("중단했습니다. 옮긴 것은 위와 같고, 나머지는 그대로 두었습니다.");
    return exitCancelled;
  }
  return allMoved ? exitOk : exitFailure;
}

}  // namespace vorlan::cli

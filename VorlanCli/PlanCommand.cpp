// `vorlan plan`: measures the cleanup parents and prints the plan, largest first, as a table
// for people or as JSON for scripts. Nothing is deleted.
#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <set>

#include "Commands.hpp"
#include "NetworkCli.hpp"
#include "PlanLoading.hpp"
#include "cleanup/CleanupSession.hpp"

namespace vorlan::cli {

namespace {

struct PlanOptions {
  bool json = false;
  bool all = false;
  bool noProgress = false;
  bool explain = false;
};

// Short labels for the verdict column; the row's own words follow below it.
std::string_view verdictLabel(CleanupVerdict verdict) {
  switch (verdict) {
    case CleanupVerdict::orphan: return "주인 없음";
    case CleanupVerdict::stale: return "오래됨";
    case CleanupVerdict::regenerable: return "다시 생김";
    case CleanupVerdict::inUse: return "실행 중";
    case CleanupVerdict::needsReview: return "확인 필요";
    case CleanupVerdict::keep: return "보존";
    case CleanupVerdict::unknown: return "미확인";
  }
  return "";
}

std::string padRight(std::string_view text, int columns) {
  return std::string(text) + std::string(std::max(0, columns - displayWidth(text)), ' ');
}

std::string padLeft(std::string_view text, int columns) {
  return std::string(std::max(0, columns - displayWidth(text)), ' ') + std::string(text);
}

// The row's consequence is a whole sentence of its own (often one that starts "지우면").
std::string consequenceLine(const CleanupItem& item) { return "→ " + item.consequence; }

std::string tickMark(const CleanupItem& item, const std::set<std::string>& checked) {
  if (!item.isExecutable()) return "[-]";
  return checked.contains(item.path) ? "[✓]" : "[ ]";
}

void printTable(const std::vector<CleanupItem>& shown, const std::vector<CleanupItem>& all,
                const std::set<std::string>& checked, bool showAll) {
  const size_t hidden = all.size() - shown.size();
  if (shown.empty()) {
    fmt::print("정리할 만한 폴더를 찾지 못했습니다.");
    if (hidden > 0) fmt::print(" (작은 폴더 {}개 숨김 — 모두 보려면 --all)", hidden);
    fmt::print("\n");
    return;
  }

  int sizeWidth = 0, labelWidth = 0;
  for (const auto& item : shown) {
    sizeWidth = std::max(sizeWidth, displayWidth(formatGB(item.bytes)));
    labelWidth = std::max(labelWidth, displayWidth(verdictLabel(item.verdict)));
  }
  const std::string indent(static_cast<size_t>(4 + sizeWidth + 2), ' ');

  fmt::print("정리 계획 — 폴더 {}개, 큰 것부터", shown.size());
  if (!showAll && hidden > 0) fmt::print(" (50MB 미만 {}개 숨김 — 모두 보려면 --all)", hidden);
  fmt::print("\n\n");
  for (const auto& item : shown) {
    fmt::print("{} {}  {}  ~/{}\n", tickMark(item, checked), padLeft(formatGB(item.bytes), sizeWidth),
               padRight(verdictLabel(item.verdict), labelWidth), item.path);
    // A kept row's reason is its `what`: the sentence stands once.
    const bool once = item.what.empty() || item.what == item.reason;
    std::string words = once ? item.reason : item.what + " · " + item.reason;
    fmt::print("{}{}\n", indent, words);
    fmt::print("{}{}\n", indent, consequenceLine(item));
  }

  size_t immediateCount = 0, heldCount = 0;
  for (const auto& item : all) {
    if (!checked.contains(item.path)) continue;
    (item.purgeImmediately ? immediateCount : heldCount) += 1;
  }
  fmt::print("\n체크한 항목 {}개 · 선택한 {}\n", checked.size(), formatGB(selectedBytes(all, checked)));
  fmt::print("  지금 바로 확보 {} ({}개)\n", formatGB(selectedImmediateBytes(all, checked)),
             immediateCount);
  fmt::print("  7일 뒤 확보 {} ({}개) — 그때까지 되돌릴 수 있음\n",
             formatGB(selectedHeldBytes(all, checked)), heldCount);
  fmt::print("[✓] 기본으로 체크됨 · [ ] 직접 체크할 수 있음 · [-] 지울 수 없음\n");
}

void printJson(const std::vector<CleanupItem>& shown) {
  auto rows = nlohmann::ordered_json::array();
  for (const auto& item : shown) {
    nlohmann::ordered_json row;
    row["name"] = item.name;
    row["path"] = item.path;
    row["bytes"] = item.bytes;
    row["last_changed_epoch"] = item.lastChangedEpoch;
    row["file_count"] = item.fileCount;
    row["verdict"] = rawValue(item.verdict);
    row["checked"] = item.checked;
    row["reason"] = item.reason;
    row["delete_paths"] = item.deletePaths;
    row["what"] = item.what;
    row["consequence"] = item.consequence;
    row["purge_immediately"] = item.purgeImmediately;
    rows.push_back(std::move(row));
  }
  // Folder names need not be valid UTF-8; such bytes become U+FFFD rather than an abort.
  fmt::print("{}\n", rows.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

}  // namespace

int runPlan(const std::vector<std::string>& args, const CliContext& ctx) {
  PlanOptions options;
  for (const auto& arg : args) {
    if (arg == "--json")
      options.json = true;
    else if (arg == "--all")
      options.all = true;
    else if (arg == "--no-progress")
      options.noProgress = true;
    else if (arg == "--explain")
      options.explain = true;
    else
      return usageError(fmt::format("'plan'이 모르는 인자입니다: {}", arg));
  }
  // The explanation's request and answers are printed for a person; they would break JSON.
  if (options.explain && options.json)
    return usageError("--explain 과 --json 은 함께 쓸 수 없습니다.");

  const auto dictionary = KnowledgeDictionary::bundled();
  auto loaded = loadPlanWithProgress(ctx, dictionary, options.noProgress);
  if (!loaded) return exitCancelled;
  LoadedPlan& plan = *loaded;
  if (options.explain) plan.items = explainPlan(plan.items, dictionary, ctx);

  const auto shown = options.all ? plan.items : visibleItems(plan.items);
  if (options.json)
    printJson(shown);
  else
    printTable(shown, plan.items, initialChecked(plan.items), options.all);
  return exitOk;
}

}  // namespace vorlan::cli

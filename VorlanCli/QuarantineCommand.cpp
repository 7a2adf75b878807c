// `vorlan quarantine`: lists the batches, restores one, empties all, purges the expired ones,
// and puts back what an interrupted move left in a folder without a manifest.
#include <ctime>
#include <system_error>
#include <fmt/format.h>
#include <map>

#include "Commands.hpp"
#include "quarantine/Quarantine.hpp"
#include "report/CleanupLedger.hpp"

namespace vorlan::cli {


namespace {

constexpr std::string_view kPlaceTaken = "그 자리에 이미 다른 것이 있습니다";

std::string localMinute(int64_t epoch) { return localDateText(epoch, true); }

int64_t batchBytes(const QuarantineBatch& batch) {
  int64_t sum = 0;
  for (const auto& item : batch.items) sum = addBytes(sum, item.bytes);
  return sum;
}

void printOrphans(const std::vector<std::string>& orphans) {
  if (orphans.empty()) return;
  std::string names;
  for (const auto& name : orphans) names += (names.empty() ? "" : ", ") + name;
  fmt::print("옮기다 끊긴 폴더 {}개가 있습니다: {} — 되돌리려면: vorlan quarantine recover\n", orphans.size(), names);
}

int listBatches(const Quarantine& quarantine, const CliContext& ctx) {
  const auto batches = quarantine.listBatches();
  const auto orphans = quarantine.orphanedFolders();
  if (batches.empty()) {
    fmt::print("보관함이 비어 있습니다.\n");
    printOrphans(orphans);
    return exitOk;
  }
  for (const auto& line : renderCleanupLedger(cleanupLedger(batches, 0))) fmt::print("{}\n", line);
  for (const auto& batch : batches) {
    fmt::print("\n묶음 {} — {}개 항목 · {} · 옮긴 때 {} · 비우는 때 {}\n", batch.id, batch.items.size(),
               formatGB(batchBytes(batch)), localMinute(batch.createdEpoch), localMinute(batch.expiresEpoch));
    if (batch.expiresSoon(ctx.now)) fmt::print("  곧 자동으로 비워집니다\n");
    for (const auto& item : batch.items) fmt::print("  {:>8}  ~/{}\n", formatGB(item.bytes), item.original);
    if (!batch.failures.empty()) {
      fmt::print("  옮기지 못한 항목 {}개:\n", batch.failures.size());
      for (const auto& path : batch.failures) fmt::print("            ~/{}\n", path);
    }
  }
  printOrphans(orphans);
  return exitOk;
}

int restoreBatch(const Quarantine& quarantine, const std::string& id) {
  RestoreResult result;
  try {
    result = quarantine.restore(id);
  } catch (const QuarantineError& error) {
    if (error.kind() == QuarantineErrorKind::outsideQuarantine) return usageError(describeQuarantineFailure(error));
    return failure(describeQuarantineFailure(error));
  } catch (const std::exception& error) {
    return failure("되돌리지 못했습니다: " + describeQuarantineFailure(error));
  }
  for (const auto& path : result.restored) fmt::print("되돌림: ~/{}\n", path);
  bool onlyTaken = true;
  for (const auto& path : result.failed) {
    const std::string& why = result.reasons[path];
    onlyTaken = onlyTaken && why == kPlaceTaken;
    fmt::print("남겨 둠: ~/{} — {}\n", path, why);
  }
  const size_t all = result.restored.size() + result.failed.size();
  if (!result.failed.empty()) {
    fmt::print("{}개 중 {}개를 되돌렸습니다 — {}\n", all, result.restored.size(),
               onlyTaken ? "나머지는 같은 위치에 새 파일이 생겨 보관함에 남아 있습니다" : "나머지는 보관함에 남아 있습니다");
    return exitFailure;
  }
  fmt::print("{}개를 모두 되돌렸습니다.\n", all);
  return exitOk;
}

int emptyAll(const Quarantine& quarantine, bool yes, const CliContext& ctx) {
  const auto batches = quarantine.listBatches();
  if (batches.empty()) {
    fmt::print("보관함이 비어 있습니다.\n");
    return exitOk;
  }
  int64_t promised = 0;
  for (const auto& batch : batches) promised = addBytes(promised, batchBytes(batch));
  fmt::print("보관함의 묶음 {}개, {}를 지웁니다. 사라지고 되돌릴 수 없습니다.\n", batches.size(), formatGB(promised));
  if (!yes) {
    if (!ctx.stdinIsTerminal)
      return usageError("터미널에서 실행하지 않을 때는 --yes 를 붙여야 비웁니다. 아무것도 바꾸지 않았습니다.");
    if (!confirmOnTerminal("지금 비울까요?", ctx)) {
      fmt::print("취소했습니다. 아무것도 바꾸지 않았습니다.\n");
      return ctx.stop.stop_requested() ? exitCancelled : exitFailure;
    }
  }
  int64_t freed = 0;
  std::vector<std::pair<std::string, std::string>> failed;
  for (const auto& batch : batches) {
    try {
      quarantine.purge(batch.id);
      freed = addBytes(freed, batchBytes(batch));
    } catch (const std::exception& error) {
      failed.emplace_back(batch.id, describeQuarantineFailure(error));
    }
  }
  fmt::print("비운 공간 {}\n", formatGB(freed));
  if (failed.empty()) return exitOk;
  for (const auto& [id, why] : failed) fmt::print("비우지 못한 묶음: {} — {}\n", id, why);
  return failure("일부 항목을 비우지 못했습니다");
}

int expireOverdue(const Quarantine& quarantine, const CliContext& ctx) {
  // The manifests are read before anything goes, so that the freed bytes can be told after.
  std::map<std::string, int64_t> bytesOf;
  for (const auto& batch : quarantine.listBatches()) bytesOf[batch.id] = batchBytes(batch);
  const ExpireResult result = quarantine.expire(ctx.now);
  int64_t freed = 0;
  for (const auto& id : result.purged) freed = addBytes(freed, bytesOf[id]);
  if (result.purged.empty() && result.failed.empty()) {
    fmt::print("기한이 지난 묶음이 없습니다.\n");
    return exitOk;
  }
  for (const auto& id : result.purged) fmt::print("비움: 묶음 {}\n", id);
  fmt::print("기한이 지난 묶음 {}개를 비웠습니다 — 비운 공간 {}\n", result.purged.size(), formatGB(freed));
  if (result.failed.empty()) return exitOk;
  for (const auto& id : result.failed) fmt::print("비우지 못한 묶음: {} — {}\n", id, result.reasons.at(id));
  return failure("일부 항목을 자동으로 비우지 못했습니다");
}

int recoverAll(const Quarantine& quarantine, const CliContext& ctx) {
  const auto orphans = quarantine.orphanedFolders();
  if (orphans.empty()) {
    fmt::print("되돌릴 끊긴 폴더가 없습니다.\n");
    return exitOk;
  }
  bool whole = true;
  for (const auto& name : orphans) {
    RecoverResult result;
    try {
      result = quarantine.recover(name, ctx.now);
    } catch (const std::exception& error) {
      warn(fmt::format("{}: {}", name, describeQuarantineFailure(error)));
      whole = false;
      continue;
    }
    for (const auto& path : result.restored) fmt::print("되돌림: ~/{}\n", path);
    for (const auto& path : result.kept) {
      if (result.state == RecoverState::keptAsBatch)
        fmt::print("남겨 둠: ~/{} — {}\n", path, result.reasons[path]);
      else
        fmt::print("남겨 둠: {} — 원래 자리에 이미 다른 것이 있습니다\n", (quarantine.root / name / path).string());
    }
    switch (result.state) {
      case RecoverState::emptied:
        fmt::print("폴더 {}: 모두 제자리에 두고 폴더를 지웠습니다.\n", name);
        break;
      case RecoverState::keptAsBatch:
        fmt::print("폴더 {}: 나머지는 보관함의 묶음 {}으로 남겼습니다 — 되돌리려면: vorlan quarantine restore {}\n",
                   name, name, name);
        whole = false;
        break;
      case RecoverState::leftOver:
        fmt::print("폴더 {}: 되돌리지 못한 것이 남아 있습니다. 직접 확인해 주세요.\n", name);
        whole = false;
        break;
      case RecoverState::busy:
        fmt::print("폴더 {}: 다른 Vorlan이 아직 옮기는 중이라 건드리지 않았습니다.\n", name);
        whole = false;
        break;
      case RecoverState::notOrphan:
        break;
    }
  }
  return whole ? exitOk : exitFailure;
}

int runQuarantineAction(const std::vector<std::string>& args, const CliContext& ctx) {
  const Quarantine quarantine(Quarantine::defaultRoot(ctx.home), ctx.home);
  const std::string action = args.empty() ? "list" : args[0];
  const std::vector<std::string> rest(args.begin() + (args.empty() ? 0 : 1), args.end());
  auto noMoreArguments = [&]() -> std::optional<int> {
    if (rest.empty()) return std::nullopt;
    return usageError(fmt::format("'quarantine {}'이 모르는 인자입니다: {}", action, rest[0]));
  };

  if (action == "list") {
    if (auto bad = noMoreArguments()) return *bad;
    return listBatches(quarantine, ctx);
  }
  if (action == "restore") {
    if (rest.size() != 1) return usageError("되돌릴 묶음 하나를 알려 주세요: vorlan quarantine restore ID");
    return restoreBatch(quarantine, rest[0]);
  }
  if (action == "empty") {
    bool yes = false;
    for (const auto& arg : rest) {
      if (arg == "--yes" || arg == "-y")
        yes = true;
      else
        return usageError(fmt::format("'quarantine empty'가 모르는 인자입니다: {}", arg));
    }
    return emptyAll(quarantine, yes, ctx);
  }
  if (action == "expire") {
    if (auto bad = noMoreArguments()) return *bad;
    return expireOverdue(quarantine, ctx);
  }
  if (action == "recover") {
    if (auto bad = noMoreArguments()) return *bad;
    return recoverAll(quarantine, ctx);
  }
  return usageError(fmt::format("'quarantine'이 모르는 동작입니다: {} (list, restore, empty, expire, recover)", action));
}

}  // namespace

int runQuarantine(const std::vector<std::string>& args, const CliContext& ctx) {
  // A store that leads out of the home folder, or that another run holds: one line, whatever
  // the action.
  try {
    return runQuarantineAction(args, ctx);
  } catch (const QuarantineError& error) {
    return failure(describeQuarantineFailure(error));
  } catch (const std::system_error& error) {
    return failure(describeQuarantineFailure(error));
  }
}

}  // namespace vorlan::cli

#include "PlanLoading.hpp"

#include <fmt/format.h>

#include "Cancelled.hpp"
#include "cleanup/AppOwnership.hpp"

namespace vorlan::cli {

void PlanProgressReporter::operator()(const PlanLoadProgress& p) {
  const bool last = p.foldersDone == p.foldersTotal;
  if (terminal_) {
    auto now = std::chrono::steady_clock::now();
    if (!last && now - lastDrawn_ < std::chrono::milliseconds(100)) return;
    lastDrawn_ = now;
  } else if (!seen_.insert(p.parent).second && !last) {
    return;
  }
  line_.show(fmt::format("정리 계획을 위해 재는 중: ~/{} — 폴더 {}/{}개", p.parent, p.foldersDone,
                         p.foldersTotal));
}

std::optional<LoadedPlan> loadPlanWithProgress(const CliContext& ctx,
                                               const KnowledgeDictionary& dictionary,
                                               bool noProgress) {
  const auto mode = progressModeFor(ctx, noProgress);
  ProgressLine line(mode);
  PlanProgressReporter reporter(line, mode == ProgressLine::Mode::terminal);
  LoadedPlan plan;
  try {
    plan = loadCleanupPlan(ctx.home, dictionary, installedBundleIDs(defaultAppDirs(ctx.home)),
                           runningBundleIDs(), ctx.now, {},
                           [&](const PlanLoadProgress& p) { reporter(p); },
                           defaultMeasuringThreads(), ctx.stop);
  } catch (const Cancelled&) {
    line.finish();
    warn("중단했습니다. 아무것도 바뀌지 않았습니다.");
    return std::nullopt;
  }
  line.finish();
  for (const auto& parent : plan.unreadableParents)
    warn(fmt::format("읽을 수 없어 건너뜀: ~/{}", parent));
  return plan;
}

}  // namespace vorlan::cli

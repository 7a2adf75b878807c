#include "PlanProgressReporter.hpp"

#include <fmt/format.h>

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

}  // namespace vorlan::cli

// The sentences that tell the user what deleting a row does, and how an outside explanation
// may change a row's words without changing what will be done with it.
#pragma once
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cleanup/CleanupPlan.hpp"
#include "cleanup/KnowledgeDictionary.hpp"

namespace vorlan {

namespace CleanupCopy {
// The sentences that promise "7일" rest on CleanupPolicy::quarantineDays; keep them in step.
inline constexpr std::string_view reviewReason = "확인이 필요합니다";
inline constexpr std::string_view regenerable =
    "앱이 다시 만듭니다 — 보관 없이 바로 비워지고, 다음 실행이 잠깐 느릴 수 있습니다";
inline constexpr std::string_view regenerableHeld = "다시 만들어지는 종류입니다 — 7일 보관 후 비워집니다";
inline constexpr std::string_view orphan =
    "지운 앱이 남긴 것입니다 — 다시 설치하면 새로 만듭니다. 7일 안에 되돌릴 수 있습니다";
inline constexpr std::string_view staleData = "이 앱의 저장 데이터가 사라집니다 — 7일 안에 되돌릴 수 있습니다";
inline constexpr std::string_view reviewDefault = "직접 확인한 뒤 지우세요 — 7일 안에 되돌릴 수 있습니다";
inline constexpr std::string_view unknown = "무엇인지 모릅니다 — 지우면 7일간 보관했다가 비웁니다";
inline constexpr std::string_view inUse = "지금 실행 중이라 지우지 않습니다";
inline constexpr std::string_view keep = "지우지 않습니다";
inline constexpr std::string_view explainedReason = "AI가 설명만 붙였습니다 — 판정은 그대로입니다";
}  // namespace CleanupCopy

// The two figures under the plan and the line for folders left because their app runs, worded
// alike by `vorlan clean` and the cleanup screen. `shownPaths` are the paths as each shows them.
std::string immediateFigure(int64_t bytes);
std::string heldFigure(int64_t bytes);
std::string skippedInUseLine(const std::vector<std::string>& shownPaths);

// What deleting a row of this verdict does, in the user's words.
std::string consequence(CleanupVerdict verdict, bool purgeImmediately,
                        const std::optional<DictEntry>& entry,
                        const std::optional<InheritedKnowledge>& inherited);

// The row with the explanation's `what` and `risk` in its words. Verdict, tick, hold and
// deletePaths never change; rows that are kept or in use are left as they are.
CleanupItem explained(const CleanupItem& item, const DictEntry& entry);

// Each row whose path has an explanation, explained; the others as they are, in order.
std::vector<CleanupItem> applyExplanations(const std::vector<CleanupItem>& items,
                                           const std::map<std::string, DictEntry>& explanations);

}  // namespace vorlan

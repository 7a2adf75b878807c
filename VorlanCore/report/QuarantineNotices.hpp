// The sentences that tell the user what became of a restore or an emptying, shared by the
// quarantine panel and the command line.
#pragma once
#include <cstddef>
#include <string>
#include <string_view>

namespace vorlan::QuarantineNotices {

inline constexpr std::string_view sweepFailed = "일부 항목을 자동으로 비우지 못했습니다";
inline constexpr std::string_view emptyFailed = "일부 항목을 비우지 못했습니다";
inline constexpr std::string_view restoreFailedPrefix = "되돌리지 못했습니다: ";

// "5개 중 3개를 되돌렸습니다 — …": blames a new file at the old place, the one reason the user
// can act upon.
std::string partialRestore(size_t restored, size_t failed);

}  // namespace vorlan::QuarantineNotices

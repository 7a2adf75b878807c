#include "report/CleanupLedger.hpp"

#include <algorithm>
#include <ctime>
#include <limits>
#include <fmt/format.h>

#include "scan/ScanRecords.hpp"

namespace vorlan {
namespace {

// Padded to eight columns so that the amounts of the lines stand one under the other.
std::string amount(int64_t bytes) {
  return fmt::format("{:>8}", formatGB(bytes));
}

}  // namespace

std::string localDateText(int64_t epoch, bool withTime) {
  // Years 1970 to 9999: four digits, and far inside what the system can convert.
  constexpr int64_t kLast = 253'402'300'799;  // 9999-12-31 23:59:59 UTC
  const time_t seconds = static_cast<time_t>(epoch);
  std::tm local{};
  if (epoch < 0 || epoch > kLast || ::localtime_r(&seconds, &local) == nullptr) return "날짜 알 수 없음";
  if (!withTime) return fmt::format("{:04}-{:02}-{:02}", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                     local.tm_hour, local.tm_min);
}

int64_t freedByEmptying(int64_t promised, std::optional<int64_t> usedBefore,
                        std::optional<int64_t> usedAfter) {
  if (!usedBefore || !usedAfter) return promised;
  // A disk that filled up meanwhile shows no change at all.
  const int64_t delta = *usedAfter > *usedBefore ? 0 : *usedBefore - *usedAfter;
  const bool lagged = delta < std::numeric_limits<int64_t>::max() / 10 && delta * 10 < promised;
  return lagged ? promised : delta;
}

CleanupLedger cleanupLedger(const std::vector<QuarantineBatch>& batches, int64_t freedBytes) {
  CleanupLedger ledger;
  ledger.freedBytes = freedBytes;
  for (const auto& batch : batches) {
    for (const auto& item : batch.items) ledger.movedBytes = addBytes(ledger.movedBytes, item.bytes);
    // Empty batches count too: the earliest date is the one the user must mind.
    ledger.expiresEpoch = ledger.expiresEpoch ? std::min(*ledger.expiresEpoch, batch.expiresEpoch)
                                              : batch.expiresEpoch;
  }
  return ledger;
}

std::vector<std::string> renderCleanupLedger(const CleanupLedger& ledger) {
  if (ledger.movedBytes < 1 && ledger.freedBytes < 1) return {};
  std::vector<std::string> lines{
      "치운 파일 " + amount(ledger.movedBytes) + "   되돌릴 수 있어요",
      "비운 공간 " + amount(ledger.freedBytes),
  };
  if (ledger.expiresEpoch) lines.push_back("보관 기한 " + localDateText(*ledger.expiresEpoch));
  return lines;
}

}  // namespace vorlan

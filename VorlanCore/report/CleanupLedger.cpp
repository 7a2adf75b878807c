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

std::string localDate(int64_t epoch) {
  const time_t seconds = static_cast<time_t>(epoch);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  return fmt::format("{:04}-{:02}-{:02}", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

}  // namespace

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
    for (const auto& item : batch.items) ledger.movedBytes += item.bytes;
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
  if (ledger.expiresEpoch) lines.push_back("보관 기한 " + localDate(*ledger.expiresEpoch));
  return lines;
}

}  // namespace vorlan

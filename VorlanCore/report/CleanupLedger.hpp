// The three-line account of a cleanup: what sits restorable in the quarantine, what space has
// really been freed, and until when the quarantined files stay.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quarantine/QuarantineRecords.hpp"

namespace vorlan {

struct CleanupLedger {
  int64_t movedBytes = 0;                // all items of all batches
  int64_t freedBytes = 0;                // as the caller counted it
  std::optional<int64_t> expiresEpoch;   // the earliest expiry; absent without batches
  bool operator==(const CleanupLedger&) const = default;
};

// Space freed by emptying batches whose manifests promise `promised` bytes, from the volume's
// used figure before and after. The measured change wins unless it is under a tenth of the
// promise (the file system may not have released the space yet) or a figure is missing.
int64_t freedByEmptying(int64_t promised, std::optional<int64_t> usedBefore,
                        std::optional<int64_t> usedAfter);

CleanupLedger cleanupLedger(const std::vector<QuarantineBatch>& batches, int64_t freedBytes);

// No lines when nothing was moved or freed. The date is shown in the machine's time zone.
std::vector<std::string> renderCleanupLedger(const CleanupLedger& ledger);

// "yyyy-MM-dd", or "yyyy-MM-dd HH:mm" with `withTime`, in the machine's time zone; a time that
// has no such date (a crafted manifest's) reads "날짜 알 수 없음".
std::string localDateText(int64_t epoch, bool withTime = false);

}  // namespace vorlan

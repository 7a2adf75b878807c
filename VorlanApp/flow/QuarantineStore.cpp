#include "flow/QuarantineStore.hpp"

#include <exception>
#include <set>

#include "cleanup/CleanupPlan.hpp"
#include "cleanup/KnowledgeDictionary.hpp"
#include "network/CleanupTelemetry.hpp"
#include "platform/VolumeFigures.hpp"
#include "quarantine/Quarantine.hpp"
#include "report/CleanupLedger.hpp"
#include "report/QuarantineNotices.hpp"

namespace vorlan::app {
namespace {

Quarantine storeOf(const std::filesystem::path& home) {
  return Quarantine(Quarantine::defaultRoot(home), home);
}

// Every batch whose manifest reads and speaks for its folder, in id order.
std::vector<QuarantineBatch> readableBatches(const Quarantine& quarantine) {
  try {
    return quarantine.listBatches();
  } catch (const std::exception&) {
    return {};
  }
}

QString fromUtf8(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

struct SweepOutcome {
  std::optional<ExpireResult> result;
  std::vector<QuarantineItem> removed;
};

struct EmptyOutcome {
  std::vector<std::string> purged;
  std::vector<std::string> failed;
  std::optional<int64_t> usedBefore;
  std::optional<int64_t> usedAfter;
};

struct RestoreOutcome {
  std::optional<RestoreResult> result;
  std::string error;
};

}  // namespace

QuarantineStore::QuarantineStore(AppEnvironment env, QObject* parent)
    : QObject(parent), env_(std::move(env)) {}

void QuarantineStore::addFreedBytes(int64_t bytes) {
  freedBytes_ += bytes;
  emit freedBytesChanged();
}

void QuarantineStore::reload() {
  batches_ = readableBatches(storeOf(env_.home));
  emit batchesChanged();
}

void QuarantineStore::expireOverdue() {
  // A relative home would put the store under whatever folder the app was started in.
  if (sweepInFlight_ || !env_.home.is_absolute()) return;
  sweepInFlight_ = true;
  emit sweepInFlightChanged();
  jobs_.start(
      [home = env_.home, now = env_.now()](std::stop_token) {
        const Quarantine quarantine = storeOf(home);
        // The manifests are read before anything goes, so the event can say what went.
        const auto before = readableBatches(quarantine);
        SweepOutcome outcome;
        try {
          outcome.result = quarantine.expire(now);
        } catch (const std::exception&) {
        }
        if (outcome.result) {
          const std::set<std::string> purged(outcome.result->purged.begin(),
                                             outcome.result->purged.end());
          for (const auto& batch : before)
            if (purged.contains(batch.id))
              outcome.removed.insert(outcome.removed.end(), batch.items.begin(), batch.items.end());
        }
        return outcome;
      },
      [this](SweepOutcome outcome) {
        send("expired", outcome.removed);
        const bool failed = outcome.result && !outcome.result->failed.empty();
        setExpireNotice(failed ? std::optional(fromUtf8(QuarantineNotices::sweepFailed))
                               : std::nullopt);
        reload();
        sweepInFlight_ = false;
        emit sweepInFlightChanged();
        emit workFinished();
      });
}

void QuarantineStore::purgeAll() {
  if (isPurging_) return;
  isPurging_ = true;
  emit isPurgingChanged();
  std::vector<std::string> ids;
  for (const auto& batch : batches_) ids.push_back(batch.id);
  jobs_.start(
      [home = env_.home, ids](std::stop_token) {
        const Quarantine quarantine = storeOf(home);
        EmptyOutcome outcome;
        outcome.usedBefore = settingsUsedBytes("/");
        for (const auto& id : ids) {
          try {
            quarantine.purge(id);
            outcome.purged.push_back(id);
          } catch (const std::exception&) {
            outcome.failed.push_back(id);
          }
        }
        outcome.usedAfter = settingsUsedBytes("/");
        return outcome;
      },
      [this](EmptyOutcome outcome) {
        if (!outcome.purged.empty()) {
          const std::set<std::string> purged(outcome.purged.begin(), outcome.purged.end());
          std::vector<QuarantineItem> items;
          for (const auto& batch : batches_)
            if (purged.contains(batch.id)) items.insert(items.end(), batch.items.begin(), batch.items.end());
          send("purged", items);
          int64_t promised = 0;
          for (const auto& item : items) promised += item.bytes;
          addFreedBytes(freedByEmptying(promised, outcome.usedBefore, outcome.usedAfter));
        }
        setExpireNotice(outcome.failed.empty() ? std::nullopt
                                               : std::optional(fromUtf8(QuarantineNotices::emptyFailed)));
        for (const auto& id : outcome.purged) restoreNotices_.erase(id);
        emit restoreNoticesChanged();
        reload();
        isPurging_ = false;
        emit isPurgingChanged();
        emit workFinished();
      });
}

void QuarantineStore::restore(const QuarantineBatch& batch) {
  if (restoringID_) return;
  restoringID_ = batch.id;
  emit restoringIDChanged();
  // Off the main thread: a restore across file systems copies whole folders.
  jobs_.start(
      [home = env_.home, id = batch.id](std::stop_token) {
        RestoreOutcome outcome;
        try {
          outcome.result = storeOf(home).restore(id);
        } catch (const std::exception& error) {
          outcome.error = describeQuarantineFailure(error);
        }
        return outcome;
      },
      [this, batch](RestoreOutcome outcome) {
        if (!outcome.result) {
          restoreNotices_[batch.id] =
              RestoreNotice{fromUtf8(QuarantineNotices::restoreFailedPrefix) + fromUtf8(outcome.error), {}};
        } else {
          const std::set<std::string> restored(outcome.result->restored.begin(),
                                               outcome.result->restored.end());
          std::vector<QuarantineItem> back;
          for (const auto& item : batch.items)
            if (restored.contains(item.original)) back.push_back(item);
          send("restored", back);
          if (outcome.result->failed.empty())
            restoreNotices_.erase(batch.id);
          else
            restoreNotices_[batch.id] = RestoreNotice{
                fromUtf8(QuarantineNotices::partialRestore(outcome.result->restored.size(),
                                                           outcome.result->failed.size())),
                outcome.result->failed};
        }
        emit restoreNoticesChanged();
        reload();
        restoringID_.reset();
        emit restoringIDChanged();
        emit workFinished();
      });
}

void QuarantineStore::send(std::string_view event, const std::vector<QuarantineItem>& items) {
  const auto config = telemetryConfig(env_);
  if (!telemetryConsented_ || items.empty() || !config) return;
  // Only the path and the size reach the event; the rest of a row stays neutral.
  std::vector<CleanupItem> rows;
  for (const auto& item : items) {
    CleanupItem row;
    row.path = item.original;
    row.bytes = item.bytes;
    rows.push_back(std::move(row));
  }
  const auto payload = Telemetry::buildCleanupEvent(event, rows, KnowledgeDictionary::bundled(),
                                                    std::nullopt, env_.home);
  jobs_.start(
      [payload, config, makeTransport = env_.makeTransport](std::stop_token) {
        const auto http = makeTransport();
        return Telemetry::sendCleanupEvent(payload, *http, config);
      },
      [](bool) {});
}

void QuarantineStore::setExpireNotice(std::optional<QString> notice) {
  expireNotice_ = std::move(notice);
  emit expireNoticeChanged();
}

}  // namespace vorlan::app

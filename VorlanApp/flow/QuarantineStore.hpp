// The quarantine session behind the quarantine panel: the batches on disk, the space freed in
// this run, the sweep of overdue batches, emptying on request and restoring one batch, with
// the notices that tell what did not go as asked. Lives on the main thread; the disk work runs
// on worker threads with a store value of its own and hands back plain values.
#pragma once
#include <QObject>
#include <QString>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "flow/AppEnvironment.hpp"
#include "flow/BackgroundJobs.hpp"
#include "quarantine/QuarantineRecords.hpp"

namespace vorlan::app {

struct RestoreNotice {
  QString message;                  // the sentence under the batch
  std::vector<std::string> failed;  // originals that stayed in the batch
  bool operator==(const RestoreNotice&) const = default;
};

class QuarantineStore : public QObject {
  Q_OBJECT

 public:
  explicit QuarantineStore(AppEnvironment env, QObject* parent = nullptr);

  const std::vector<QuarantineBatch>& batches() const { return batches_; }
  int64_t freedBytes() const { return freedBytes_; }
  void addFreedBytes(int64_t bytes);
  bool isPurging() const { return isPurging_; }
  bool sweepInFlight() const { return sweepInFlight_; }
  // The batch being restored now, if any: one restore at a time.
  const std::optional<std::string>& restoringID() const { return restoringID_; }
  const std::optional<QString>& expireNotice() const { return expireNotice_; }
  const std::map<std::string, RestoreNotice>& restoreNotices() const { return restoreNotices_; }
  bool telemetryConsented() const { return telemetryConsented_; }
  void setTelemetryConsented(bool consented) { telemetryConsented_ = consented; }

  // Re-reads the batches with a readable manifest; folders without one never show.
  void reload();
  // Purges what lies past its time. A second sweep while one runs does nothing.
  void expireOverdue();
  // Empties the whole quarantine. A second call while one runs does nothing.
  void purgeAll();
  // Brings one batch back, never over anything that stands in its place.
  void restore(const QuarantineBatch& batch);

 signals:
  void batchesChanged();
  void freedBytesChanged();
  void isPurgingChanged();
  void sweepInFlightChanged();
  void restoringIDChanged();
  void expireNoticeChanged();
  void restoreNoticesChanged();
  // A sweep, emptying or restore has come to its end (tests and screens may wait on it).
  void workFinished();

 private:
  void send(std::string_view event, const std::vector<QuarantineItem>& items);
  void setExpireNotice(std::optional<QString> notice);

  AppEnvironment env_;
  std::vector<QuarantineBatch> batches_;
  int64_t freedBytes_ = 0;
  bool isPurging_ = false;
  bool sweepInFlight_ = false;
  std::optional<std::string> restoringID_;
  std::optional<QString> expireNotice_;
  std::map<std::string, RestoreNotice> restoreNotices_;
  bool telemetryConsented_ = false;
  BackgroundJobs jobs_;  // last member: joined before the fields above go
};

}  // namespace vorlan::app

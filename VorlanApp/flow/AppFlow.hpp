// The application's one top-level state object: which step of the journey the user is on, the
// running scan and its result, the statistics consent and outcome, and the launch work (expiry
// of the quarantine, the update check). Lives on the main thread for the life of the process;
// every field is written only there. Work runs on worker threads and hops back queued.
#pragma once
#include <QObject>
#include <QString>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

#include "flow/AppEnvironment.hpp"
#include "flow/BackgroundJobs.hpp"
#include "flow/CleanupFlow.hpp"
#include "flow/QuarantineStore.hpp"
#include "network/UpdateCheck.hpp"
#include "scan/ScanRecords.hpp"
#include "scan/ToolRunning.hpp"

namespace vorlan::app {

// The disk image the user may put in the trash after the app moved itself.
struct TrashCandidate {
  QString path;
  bool operator==(const TrashCandidate&) const = default;
};

class AppFlow : public QObject {
  Q_OBJECT

 public:
  enum class Step { welcome, fullDiskAccess, systemDataInput, scanning, report, cleanupPlan };
  Q_ENUM(Step)

  // Starts the launch work at once; none of it blocks the first screen.
  explicit AppFlow(AppEnvironment env, QObject* parent = nullptr);
  ~AppFlow() override;  // stops a running scan and joins its thread

  const AppEnvironment& environment() const { return env_; }

  Step step() const { return step_; }
  void setStep(Step step);

  std::optional<double> systemDataGB() const { return systemDataGB_; }
  void setSystemDataGB(std::optional<double> gb);

  const std::optional<ScanProgress>& progress() const { return progress_; }
  const std::optional<DeepScanResult>& result() const { return result_; }
  const std::optional<QString>& scanError() const { return scanError_; }
  void setScanError(std::optional<QString> error);  // the alert's "확인" clears it
  double scanDuration() const { return scanDuration_; }

  bool telemetryConsented() const { return telemetryConsented_; }
  void setTelemetryConsented(bool consented);
  std::optional<bool> telemetrySent() const { return telemetrySent_; }
  const std::optional<QString>& telemetryPreview() const { return telemetryPreview_; }

  const std::optional<UpdateInfo>& availableUpdate() const { return availableUpdate_; }
  bool updateDismissed() const { return updateDismissed_; }
  void setUpdateDismissed(bool dismissed);
  bool showMoveSheet() const { return showMoveSheet_; }
  void setShowMoveSheet(bool show);
  const std::optional<TrashCandidate>& dmgToTrash() const { return dmgToTrash_; }
  void setDmgToTrash(std::optional<TrashCandidate> candidate);

  // Starts a scan on a worker thread, ending any earlier one.
  void startScan();
  // Ends the running scan's tool at once; the flow returns to the input screen by itself
  // when the scan has come to its end.
  void cancelScan();
  bool isScanning() const;

  // Sends the masked scan report when a back-end is configured and the user agreed.
  void sendTelemetryIfConsented(const DeepScanResult& result);
  // A fixed example state for working on the report screen without a scan.
  void applyDebugReportFixture();

  // Whether the app may read protected folders, asked afresh each time.
  bool fullDiskAccessGranted() const;

  // The cleanup session and the quarantine session, one of each for the life of the app.
  CleanupFlow& cleanup() { return cleanup_; }
  QuarantineStore& quarantineStore() { return quarantineStore_; }
  // Carries out the ticked paths of the plan.
  void requestCleanup(std::vector<std::string> paths);

  // Where the app runs from, in the words of the move sheet ("디스크 이미지 안", …).
  QString installOrigin() const;
  // Copies the app into the applications folder and starts the copy; this process then ends.
  // A failure comes back as moveFailed with its words.
  void moveToApplications();

 signals:
  void stepChanged();
  void systemDataGBChanged();
  void progressChanged();
  void resultChanged();
  void scanErrorChanged();
  void scanDurationChanged();
  void telemetryConsentedChanged();
  void telemetrySentChanged();
  void telemetryPreviewChanged();
  void availableUpdateChanged();
  void updateDismissedChanged();
  void showMoveSheetChanged();
  void dmgToTrashChanged();
  void moveFailed(const QString& error);

 private:
  void startInstallWork();
  void checkForUpdate();
  struct ScanOutcome;
  void finishScan(uint64_t generation, std::chrono::steady_clock::time_point started,
                  ScanOutcome outcome);

  AppEnvironment env_;
  Step step_ = Step::welcome;
  std::optional<double> systemDataGB_;
  std::optional<ScanProgress> progress_;
  std::optional<DeepScanResult> result_;
  std::optional<QString> scanError_;
  double scanDuration_ = 0;
  bool telemetryConsented_ = false;
  std::optional<bool> telemetrySent_;
  std::optional<QString> telemetryPreview_;
  std::optional<UpdateInfo> availableUpdate_;
  bool updateDismissed_ = false;
  bool showMoveSheet_ = false;
  std::optional<TrashCandidate> dmgToTrash_;

  CleanupFlow cleanup_;
  QuarantineStore quarantineStore_;
  std::unique_ptr<ToolRunning> installRunner_;  // hdiutil and open, for the move
  std::string bundlePath_;                      // the running bundle, found at launch

  // Each scan gets a number; what an earlier one still sends back is dropped.
  uint64_t scanGeneration_ = 0;
  uint64_t scanJob_ = 0;  // the running scan's job, 0 when none runs
  // Last, so that it goes first: its threads are stopped and joined while the fields that
  // their results land in still exist.
  BackgroundJobs jobs_;
};

}  // namespace vorlan::app

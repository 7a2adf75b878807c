#include "flow/AppFlow.hpp"

namespace vorlan::app {

AppEnvironment realEnvironment() { return {}; }

AppFlow::AppFlow(AppEnvironment env, QObject* parent) : QObject(parent), env_(std::move(env)) {}
AppFlow::~AppFlow() = default;

void AppFlow::setStep(Step step) {
  if (step_ == step) return;
  step_ = step;
  emit stepChanged();
}
void AppFlow::setSystemDataGB(std::optional<double> gb) {
  systemDataGB_ = gb;
  emit systemDataGBChanged();
}
void AppFlow::setScanError(std::optional<QString> error) {
  scanError_ = std::move(error);
  emit scanErrorChanged();
}
void AppFlow::setTelemetryConsented(bool consented) {
  telemetryConsented_ = consented;
  emit telemetryConsentedChanged();
}
void AppFlow::setUpdateDismissed(bool dismissed) {
  updateDismissed_ = dismissed;
  emit updateDismissedChanged();
}
void AppFlow::setShowMoveSheet(bool show) {
  showMoveSheet_ = show;
  emit showMoveSheetChanged();
}
void AppFlow::setDmgToTrash(std::optional<TrashCandidate> candidate) {
  dmgToTrash_ = std::move(candidate);
  emit dmgToTrashChanged();
}
void AppFlow::startScan() {}
void AppFlow::cancelScan() {}
bool AppFlow::isScanning() const { return false; }
void AppFlow::sendTelemetryIfConsented(const DeepScanResult&) {}
bool AppFlow::fullDiskAccessGranted() const { return true; }

}  // namespace vorlan::app

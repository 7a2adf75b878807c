#include "flow/AppFlow.hpp"

#include <cstdlib>
#include <exception>
#include <utility>
#include <vector>

#include <QCoreApplication>

#include "Cancelled.hpp"
#include "Version.hpp"
#include "flow/InstallMover.hpp"
#include "install/InstallLocation.hpp"
#include "network/CurlTransport.hpp"
#include "network/ScanTelemetry.hpp"
#include "network/Telemetry.hpp"
#include "platform/FullDiskAccess.hpp"
#include "platform/HomeFolder.hpp"
#include "quarantine/Quarantine.hpp"
#include "scan/DeepScanner.hpp"
#include "scan/ProcessToolRunner.hpp"

namespace vorlan::app {
namespace {

int64_t systemNow() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::unique_ptr<ToolRunning> makeProcessToolRunner() { return std::make_unique<ProcessToolRunner>(); }
std::unique_ptr<HttpTransport> makeCurlTransport() { return std::make_unique<CurlTransport>(); }

}  // namespace

// A test or a screenshot may set only the pieces it cares about; the rest is the real thing.
// The home folder is never guessed: that is the caller's to give.
AppEnvironment completed(AppEnvironment env) {
  if (!env.makeToolRunner) env.makeToolRunner = makeProcessToolRunner;
  if (!env.hasBinary) env.hasBinary = defaultHasBinary;
  if (!env.makeTransport) env.makeTransport = makeCurlTransport;
  if (!env.now) env.now = systemNow;
  if (!env.installSeams) env.installSeams = realInstallSeams;
  return env;
}

std::optional<Telemetry::Config> telemetryConfig(const AppEnvironment& env) {
  return Telemetry::resolveConfig(env.environment, Telemetry::defaultURL, Telemetry::defaultAnonKey);
}

AppEnvironment realEnvironment() {
  return AppEnvironment{homeFolderFrom(std::getenv("HOME")).path, processEnvironment(),
                        makeProcessToolRunner, defaultHasBinary, makeCurlTransport, systemNow,
                        realInstallSeams};
}

struct AppFlow::ScanOutcome {
  std::optional<DeepScanResult> result;  // absent when cancelled or failed
  std::optional<std::string> error;      // the failure's description
};

AppFlow::AppFlow(AppEnvironment env, QObject* parent)
    : QObject(parent),
      env_(completed(std::move(env))),
      cleanup_(env_),
      quarantineStore_(env_),
      installRunner_(env_.makeToolRunner()) {
  // What is deleted at once counts in the same tally as what the quarantine has purged.
  cleanup_.onFreedImmediately = [store = &quarantineStore_](int64_t bytes) {
    store->addFreedBytes(bytes);
    store->reload();
  };
  quarantineStore_.expireOverdue();
  startInstallWork();
  checkForUpdate();
  if (environmentValue(env_.environment, "VORLAN_DEBUG_REPORT") == "1") applyDebugReportFixture();
}

AppFlow::~AppFlow() = default;

void AppFlow::startInstallWork() {
  const InstallSeams seams = env_.installSeams(*installRunner_);
  bundlePath_ = seams.bundlePath.string();
  if (InstallLocation::shouldOfferMove(bundlePath_, env_.home.string(),
                                       env_.environment)) {
    setShowMoveSheet(true);
    if (environmentValue(env_.environment, "VORLAN_AUTO_MOVE") == "1") moveToApplications();
    return;
  }
  jobs_.start([home = env_.home, seams](std::stop_token) { return InstallMover::finishAfterMove(home, seams); },
              [this](std::optional<std::string> image) {
                if (image) setDmgToTrash(TrashCandidate{QString::fromStdString(*image)});
              });
}

void AppFlow::moveToApplications() {
  jobs_.start(
      [home = env_.home, seams = env_.installSeams(*installRunner_)](std::stop_token) -> std::optional<QString> {
        try {
          InstallMover::moveAndRelaunch(home, seams);
          return std::nullopt;
        } catch (const std::exception& error) {
          return QString::fromStdString(error.what());
        }
      },
      [this](std::optional<QString> error) {
        // The copy runs now: this one leaves, as closing the window would.
        if (!error) QCoreApplication::exit(0);
        else emit moveFailed(*error);
      });
}

QString AppFlow::installOrigin() const {
  return InstallMover::originDescription(bundlePath_, env_.home.string());
}

void AppFlow::requestCleanup(std::vector<std::string> paths) { cleanup_.execute(std::move(paths)); }

void AppFlow::checkForUpdate() {
  jobs_.start(
      [endpoint = UpdateCheck::endpointInForce(env_.environment),
       http = env_.makeTransport()](std::stop_token) {
        HttpGetTransport transport(*http);
        return UpdateCheck::check(Telemetry::appVersion, endpoint, transport);
      },
      [this](std::optional<UpdateInfo> info) {
        availableUpdate_ = std::move(info);
        emit availableUpdateChanged();
      });
}

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
  cleanup_.setTelemetryConsented(consented);
  quarantineStore_.setTelemetryConsented(consented);
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

void AppFlow::startScan() {
  // An earlier scan is told to stop but not waited for; whatever it still sends is dropped.
  cancelScan();
  const uint64_t generation = ++scanGeneration_;
  const auto started = std::chrono::steady_clock::now();
  setStep(Step::scanning);
  setScanError(std::nullopt);
  progress_.reset();
  emit progressChanged();

  // Made here and posted from the scanning thread (or the runner's reading thread) for each
  // report: the hops keep their order, and the scan never waits for the window.
  auto deliver = [this, generation](const ScanProgress& report) {
    if (generation != scanGeneration_) return;
    progress_ = report;
    emit progressChanged();
  };
  // VORLAN_SCAN_ENGINE=du brings back one du per question, as the command line allows.
  const std::optional<std::string> engineName = environmentValue(env_.environment, "VORLAN_SCAN_ENGINE");
  const ScanEngine engine = scanEngineFromEnvironment(engineName ? engineName->c_str() : nullptr);
  scanJob_ = jobs_.start(
      [jobs = &jobs_, deliver, runner = env_.makeToolRunner(), home = env_.home,
       hasBinary = env_.hasBinary, engine](std::stop_token stop) {
        ScanOutcome outcome;
        try {
          DeepScanner scanner(*runner, home, hasBinary, engine);
          outcome.result = scanner.collect(
              [jobs, deliver](const ScanProgress& report) {
                jobs->post([deliver, report] { deliver(report); });
              },
              stop);
        } catch (const Cancelled&) {
        } catch (const std::exception& e) {
          outcome.error = e.what();
        }
        return outcome;
      },
      [this, generation, started](ScanOutcome outcome) {
        finishScan(generation, started, std::move(outcome));
      });
}

void AppFlow::finishScan(uint64_t generation, std::chrono::steady_clock::time_point started,
                         ScanOutcome outcome) {
  if (generation != scanGeneration_) return;
  scanJob_ = 0;
  if (outcome.result) {
    scanDuration_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    emit scanDurationChanged();
    result_ = std::move(outcome.result);
    emit resultChanged();
    setStep(Step::report);
    sendTelemetryIfConsented(*result_);
    return;
  }
  // The input screen reads the error when it is built, so the error comes first.
  if (outcome.error)
    setScanError(QStringLiteral("스캔에 실패했습니다: ") + QString::fromStdString(*outcome.error));
  setStep(Step::systemDataInput);
}

void AppFlow::cancelScan() {
  if (scanJob_ != 0) jobs_.requestStop(scanJob_);
}

bool AppFlow::isScanning() const { return scanJob_ != 0; }

void AppFlow::sendTelemetryIfConsented(const DeepScanResult& result) {
  // The back-end is read from the environment captured at start, as everything else here: a
  // configured back-end is not consent, and consent without one sends nothing.
  const auto config = telemetryConfig(env_);
  if (!config || !telemetryConsented_) return;
  std::vector<std::string> errors;
  if (!fullDiskAccessGranted()) errors.emplace_back(Telemetry::fdaDeniedError);

  jobs_.start(
      [result, systemDataGB = systemDataGB_, duration = scanDuration_, errors = std::move(errors),
       home = env_.home, config = *config, http = env_.makeTransport()](std::stop_token) mutable {
        const auto payload = Telemetry::buildPayload(result, systemDataGB, duration, "gui",
                                                     std::move(errors), std::nullopt, home);
        const bool sent = Telemetry::send(payload, *http, config);
        return std::pair(sent, Telemetry::renderPreview(payload));
      },
      // The preview shows what went out, so it comes only once the send is over.
      [this](std::pair<bool, std::string> outcome) {
        telemetrySent_ = outcome.first;
        emit telemetrySentChanged();
        telemetryPreview_ = QString::fromStdString(outcome.second);
        emit telemetryPreviewChanged();
      });
}

bool AppFlow::fullDiskAccessGranted() const { return FullDiskAccess::granted(env_.home); }

}  // namespace vorlan::app

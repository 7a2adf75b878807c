#include "flow/CleanupFlow.hpp"

#include <algorithm>
#include <exception>

#include "Cancelled.hpp"
#include "cleanup/AppOwnership.hpp"
#include "cleanup/CleanupCopy.hpp"
#include "network/CleanupTelemetry.hpp"
#include "network/Explain.hpp"
#include "quarantine/Quarantine.hpp"

namespace vorlan::app {
namespace {

CleanupSeams withDefaults(CleanupSeams seams) {
  if (!seams.runningApps) seams.runningApps = [] { return runningBundleIDs(); };
  if (!seams.installedApps)
    seams.installedApps = [](const std::filesystem::path& home) {
      return installedBundleIDs(defaultAppDirs(home));
    };
  if (seams.threads == 0) seams.threads = defaultMeasuringThreads();
  return seams;
}

QString fromUtf8(const std::string& text) { return QString::fromStdString(text); }

}  // namespace

CleanupFlow::CleanupFlow(AppEnvironment env, CleanupSeams seams, QObject* parent)
    : QObject(parent),
      env_(std::move(env)),
      seams_(withDefaults(std::move(seams))),
      dictionary_(std::make_shared<const KnowledgeDictionary>(KnowledgeDictionary::bundled())) {}

void CleanupFlow::toggle(const std::string& path) {
  const auto row = std::find_if(items_.begin(), items_.end(),
                                [&](const CleanupItem& item) { return item.path == path; });
  if (row == items_.end() || !row->isExecutable()) return;
  std::set<std::string> next = checked_;
  if (!next.erase(path)) next.insert(path);
  setChecked(std::move(next));
}

void CleanupFlow::load() {
  const uint64_t generation = ++loadGeneration_;
  setIsLoading(true);
  setItems({});
  loadProgress_.reset();
  emit loadProgressChanged();

  const std::set<std::string> running = seams_.runningApps();
  jobs_.start(
      [jobs = &jobs_, this, generation, running, home = env_.home, now = env_.now(),
       dictionary = dictionary_, explanations = explanations_,
       installedApps = seams_.installedApps, threads = seams_.threads](std::stop_token stop)
          -> std::optional<LoadedPlan> {
        // Each measured folder's row hops to the screen at once, in the order they finish.
        // `this` is only read on the main thread, inside the posted call.
        auto onProgress = [jobs, this, generation](const PlanLoadProgress& progress) {
          jobs->post([this, generation, progress] {
            if (loadGeneration_ != generation) return;
            loadProgress_ = progress;
            items_.push_back(progress.row);
            emit rowArrived(progress.row);
            emit loadProgressChanged();
          });
        };
        try {
          return loadCleanupPlan(home, *dictionary, installedApps(home), running, now,
                                 explanations, onProgress, threads, stop);
        } catch (const std::exception&) {
          // Cancelled by a newer load or by the app closing; a walk itself never fails.
          return std::nullopt;
        }
      },
      [this, generation](std::optional<LoadedPlan> plan) {
        if (generation != loadGeneration_) return;
        if (plan) {
          setItems(std::move(plan->items));
          setChecked(initialChecked(items_));
          refreshExplainCandidates();
        }
        setIsLoading(false);
      });
}

void CleanupFlow::showPlan(std::vector<CleanupItem> items) {
  ++loadGeneration_;
  setItems(std::move(items));
  setChecked(initialChecked(items_));
  refreshExplainCandidates();
  setIsLoading(false);
}

void CleanupFlow::refreshExplainCandidates() {
  std::vector<std::string> candidates;
  if (!explainDeclined_)
    for (auto& path : Explain::paths(visibleItems(), *dictionary_))
      if (!explainedPaths_.contains(path)) candidates.push_back(std::move(path));
  setExplainCandidates(std::move(candidates));
}

void CleanupFlow::previewExplainRequest() {
  explainRequestPreview_ = fromUtf8(Explain::renderRequest(explainCandidates_));
  emit explainRequestPreviewChanged();
}

void CleanupFlow::declineExplain() {
  explainDeclined_ = true;
  setExplainCandidates({});
}

void CleanupFlow::explainUnknowns() {
  if (explainCandidates_.empty() || isExplaining_) return;
  setIsExplaining(true);
  const std::vector<std::string> paths = explainCandidates_;
  previewExplainRequest();
  jobs_.start(
      [paths, endpoint = Explain::endpointInForce(env_.environment),
       makeTransport = env_.makeTransport](std::stop_token) {
        const auto http = makeTransport();
        HttpExplainTransport transport(*http);
        return Explain::fetch(paths, endpoint, transport);
      },
      [this, paths](std::optional<std::map<std::string, DictEntry>> answer) {
        if (answer) {
          explainedPaths_.insert(paths.begin(), paths.end());
          refreshExplainCandidates();
          for (auto& [path, entry] : *answer) explanations_[path] = std::move(entry);
          const std::vector<CleanupItem> before = items_;
          setItems(applyExplanations(items_, explanations_));
          int64_t changed = 0;
          for (size_t i = 0; i < items_.size(); ++i) changed += items_[i] == before[i] ? 0 : 1;
          explainOutcome_ = ExplainOutcome{true, changed};
        } else {
          explainOutcome_ = ExplainOutcome{false, 0};
          refreshExplainCandidates();
        }
        emit explainOutcomeChanged();
        setIsExplaining(false);
      });
}

void CleanupFlow::execute(std::vector<std::string> paths) {
  if (isExecuting_) return;
  setIsExecuting(true);
  // Taken now: an application started since the plan was built must not lose its folder.
  const std::set<std::string> running = seams_.runningApps();
  jobs_.start(
      [paths = std::move(paths), items = items_, checked = checked_, running, home = env_.home,
       now = env_.now(), purge = seams_.purge](std::stop_token stop) {
        const Quarantine quarantine(Quarantine::defaultRoot(home), home);
        return executeCleanup(paths, items, checked, running, quarantine, now, stop, purge);
      },
      [this](CleanupOutcome outcome) {
        setSkippedInUse(outcome.skippedInUse);
        if (outcome.lastBatch) {
          lastBatch_ = outcome.lastBatch;
          emit lastBatchChanged();
        }
        setExecuteError(outcome.executeError ? std::optional(fromUtf8(*outcome.executeError))
                                             : std::nullopt);
        if (outcome.immediatePurged && onFreedImmediately) onFreedImmediately(outcome.freedBytes);
        for (const auto& event : outcome.events) report(event.event, event.items);
        setItems(std::move(outcome.items));
        setChecked(std::move(outcome.checked));
        refreshExplainCandidates();
        setIsExecuting(false);
      });
}

void CleanupFlow::report(std::string_view event, const std::vector<CleanupItem>& rows) {
  const auto config = telemetryConfig(env_);
  if (!telemetryConsented_ || rows.empty() || !config) return;
  const auto payload =
      Telemetry::buildCleanupEvent(event, rows, *dictionary_, std::nullopt, env_.home);
  // Started and not awaited: nobody waits for statistics.
  jobs_.start(
      [payload, config, makeTransport = env_.makeTransport](std::stop_token) {
        const auto http = makeTransport();
        return Telemetry::sendCleanupEvent(payload, *http, config);
      },
      [](bool) {});
}

void CleanupFlow::setItems(std::vector<CleanupItem> items) {
  items_ = std::move(items);
  emit itemsChanged();
}

void CleanupFlow::setChecked(std::set<std::string> checked) {
  checked_ = std::move(checked);
  emit checkedChanged();
}

void CleanupFlow::setIsLoading(bool loading) {
  if (isLoading_ == loading) return;
  isLoading_ = loading;
  emit isLoadingChanged();
}

void CleanupFlow::setExecuteError(std::optional<QString> error) {
  executeError_ = std::move(error);
  emit executeErrorChanged();
}

void CleanupFlow::setSkippedInUse(std::vector<std::string> paths) {
  skippedInUse_ = std::move(paths);
  emit skippedInUseChanged();
}

void CleanupFlow::setIsExecuting(bool executing) {
  if (isExecuting_ == executing) return;
  isExecuting_ = executing;
  emit isExecutingChanged();
}

void CleanupFlow::setIsExplaining(bool explaining) {
  if (isExplaining_ == explaining) return;
  isExplaining_ = explaining;
  emit isExplainingChanged();
}

void CleanupFlow::setExplainCandidates(std::vector<std::string> candidates) {
  explainCandidates_ = std::move(candidates);
  emit explainCandidatesChanged();
}

}  // namespace vorlan::app

// The cleanup session behind the cleanup screen: loads the plan on a worker thread (rows show
// as their folders are measured), holds the user's ticks, fetches explanations on request,
// and carries out the ticked rows with one last look at what runs now. Lives on the main
// thread; every field is written only there.
#pragma once
#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cleanup/CleanupExecution.hpp"
#include "cleanup/CleanupSession.hpp"
#include "cleanup/KnowledgeDictionary.hpp"
#include "flow/AppEnvironment.hpp"
#include "flow/BackgroundJobs.hpp"

namespace vorlan::app {

// What the machine says about applications, and how a batch is purged: real by default.
struct CleanupSeams {
  std::function<std::set<std::string>()> runningApps;
  std::function<std::set<std::string>(const std::filesystem::path& home)> installedApps;
  BatchPurge purge;
  unsigned threads = 0;  // 0: as many as suit the machine
};

class CleanupFlow : public QObject {
  Q_OBJECT

 public:
  struct ExplainOutcome {
    bool received = false;  // false: no answer came
    int64_t count = 0;      // rows whose words changed
    bool operator==(const ExplainOutcome&) const = default;
  };

  explicit CleanupFlow(AppEnvironment env, CleanupSeams seams = {}, QObject* parent = nullptr);

  const std::vector<CleanupItem>& items() const { return items_; }
  const std::set<std::string>& checked() const { return checked_; }
  // Ticks or unticks a row; rows that cannot be carried out never change.
  void toggle(const std::string& path);
  bool isLoading() const { return isLoading_; }
  const std::optional<PlanLoadProgress>& loadProgress() const { return loadProgress_; }
  const std::optional<QuarantineBatch>& lastBatch() const { return lastBatch_; }
  const std::optional<QString>& executeError() const { return executeError_; }
  void setExecuteError(std::optional<QString> error);
  const std::vector<std::string>& skippedInUse() const { return skippedInUse_; }
  void setSkippedInUse(std::vector<std::string> paths);
  bool isExecuting() const { return isExecuting_; }
  const std::vector<std::string>& explainCandidates() const { return explainCandidates_; }
  bool isExplaining() const { return isExplaining_; }
  const std::optional<ExplainOutcome>& explainOutcome() const { return explainOutcome_; }
  const std::optional<QString>& explainRequestPreview() const { return explainRequestPreview_; }
  // The exact request the candidates would make now, for the user to read before sending.
  void previewExplainRequest();
  bool explainDeclined() const { return explainDeclined_; }
  // "이번엔 안 보내기": the offer stays away for the rest of the session.
  void declineExplain();
  bool telemetryConsented() const { return telemetryConsented_; }
  void setTelemetryConsented(bool consented) { telemetryConsented_ = consented; }
  // Called with the bytes freed at once by an execution.
  std::function<void(int64_t)> onFreedImmediately;

  std::vector<CleanupItem> visibleItems() const { return vorlan::visibleItems(items_); }
  int64_t selectedBytes() const { return vorlan::selectedBytes(items_, checked_); }
  int64_t selectedImmediateBytes() const { return vorlan::selectedImmediateBytes(items_, checked_); }
  int64_t selectedHeldBytes() const { return vorlan::selectedHeldBytes(items_, checked_); }

  // Builds the plan anew; a load still running is superseded and its rows dropped.
  void load();
  // Puts a finished plan in place as a load would leave it (defaults ticked, candidates
  // offered), superseding a load under way: for fixed pictures of the screen and plans larger
  // than a test's home can hold.
  void showPlan(std::vector<CleanupItem> items);
  void refreshExplainCandidates();
  // Sends the candidates' names to the explain service; answers change words, never ticks.
  void explainUnknowns();
  // Carries out `paths` (home-relative); the outcome lands in the properties.
  void execute(std::vector<std::string> paths);
  // Sends one cleanup event when a back-end is configured and the user agreed.
  void report(std::string_view event, const std::vector<CleanupItem>& rows);

 signals:
  void itemsChanged();
  void rowArrived(const vorlan::CleanupItem& row);  // while loading, one per measured folder
  void checkedChanged();
  void isLoadingChanged();
  void loadProgressChanged();
  void lastBatchChanged();
  void executeErrorChanged();
  void skippedInUseChanged();
  void isExecutingChanged();
  void explainCandidatesChanged();
  void isExplainingChanged();
  void explainOutcomeChanged();
  void explainRequestPreviewChanged();

 private:
  void setItems(std::vector<CleanupItem> items);
  void setChecked(std::set<std::string> checked);
  void setIsLoading(bool loading);
  void setIsExecuting(bool executing);
  void setIsExplaining(bool explaining);
  void setExplainCandidates(std::vector<std::string> candidates);

  AppEnvironment env_;
  CleanupSeams seams_;
  std::shared_ptr<const KnowledgeDictionary> dictionary_;
  std::vector<CleanupItem> items_;
  std::set<std::string> checked_;
  bool isLoading_ = false;
  uint64_t loadGeneration_ = 0;
  std::optional<PlanLoadProgress> loadProgress_;
  std::optional<QuarantineBatch> lastBatch_;
  std::optional<QString> executeError_;
  std::vector<std::string> skippedInUse_;
  bool isExecuting_ = false;
  std::vector<std::string> explainCandidates_;
  bool isExplaining_ = false;
  std::optional<ExplainOutcome> explainOutcome_;
  std::optional<QString> explainRequestPreview_;
  bool explainDeclined_ = false;
  std::set<std::string> explainedPaths_;
  std::map<std::string, DictEntry> explanations_;
  bool telemetryConsented_ = false;
  BackgroundJobs jobs_;  // last member: joined before the fields above go
};

}  // namespace vorlan::app

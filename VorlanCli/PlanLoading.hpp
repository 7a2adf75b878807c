// Loading the cleanup plan from the command line, with its progress on stderr: shared by
// `vorlan plan` and `vorlan clean`.
#pragma once
#include <chrono>
#include <optional>
#include <set>
#include <string>

#include "CliSupport.hpp"
#include "cleanup/CleanupSession.hpp"
#include "cleanup/KnowledgeDictionary.hpp"

namespace vorlan::cli {

// On a terminal the line is redrawn at most a few times a second; in a log each parent gets
// one line when its first folder is done, and one when the last is.
class PlanProgressReporter {
 public:
  PlanProgressReporter(ProgressLine& line, bool terminal) : line_(line), terminal_(terminal) {}
  void operator()(const PlanLoadProgress& p);

 private:
  ProgressLine& line_;
  bool terminal_;
  std::chrono::steady_clock::time_point lastDrawn_{};
  std::set<std::string> seen_;
};

// Measures and judges the plan for the current user's home. Absent when Ctrl-C stopped it
// (one line says so); unreadable parents are named on stderr.
std::optional<LoadedPlan> loadPlanWithProgress(const CliContext& ctx,
                                               const KnowledgeDictionary& dictionary,
                                               bool noProgress);

}  // namespace vorlan::cli

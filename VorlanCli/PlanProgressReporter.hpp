// Progress of the plan's measuring, shared by `vorlan plan` and `vorlan clean`.
#pragma once
#include <chrono>
#include <set>
#include <string>

#include "CliSupport.hpp"
#include "cleanup/CleanupSession.hpp"

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

}  // namespace vorlan::cli

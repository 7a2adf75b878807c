// A ToolRunning for tests: answers from a script keyed by the exact argument vector and
// records every call, so logic that runs tools can be fed captured output.
#pragma once
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>
#include <vector>

#include "scan/ToolRunning.hpp"

namespace vorlan::test {

class ScriptedToolRunner : public ToolRunning {
 public:
  using Arguments = std::vector<std::string>;
  using Outcome = std::variant<ToolResult, ToolError>;

  struct Call {
    Arguments arguments;
    std::optional<double> timeout;  // as given to run; always absent for runStreaming
    bool streaming = false;
    std::stop_token stop;           // the token the caller passed
  };

  // Every later call with exactly `arguments` gets `outcome` (a result, or the error thrown).
  void script(Arguments arguments, Outcome outcome);
  void script(Arguments arguments, std::string stdoutText, int32_t returncode = 0,
              std::string stderrText = {});
  void scriptNotFound(Arguments arguments);  // as if the tool were not installed
  void scriptTimeout(Arguments arguments);
  // Answers argument vectors that have no script of their own. Without it they fail with
  // ToolError::notFound, as a tool that is not installed would.
  void scriptFallback(std::function<Outcome(const Arguments&)> fallback);
  // Runs at the start of every call, outside the runner's lock: a test can request a stop
  // there, or look at the files at that moment.
  void onCall(std::function<void(const Call&)> hook);

  std::vector<Call> calls() const;
  std::vector<Arguments> callArguments() const;

  // A call whose stop is requested by the time it is answered ends like a child terminated by
  // SIGTERM: returncode 15, no output. runStreaming hands each complete stdout line (without
  // its line feed) to onLine; a last line without a line feed is only in the result.
  ToolResult run(const Arguments& arguments, std::optional<double> timeout,
                 std::stop_token stop = {}) override;
  ToolResult runStreaming(const Arguments& arguments, const LineCallback& onLine,
                          std::stop_token stop = {}) override;

 private:
  ToolResult answer(Call call, const LineCallback* onLine);

  mutable std::mutex mutex_;
  std::map<Arguments, Outcome> scripts_;
  std::function<Outcome(const Arguments&)> fallback_;
  std::function<void(const Call&)> hook_;
  std::vector<Call> calls_;
};

}  // namespace vorlan::test

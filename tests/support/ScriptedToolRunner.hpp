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
  void script(Arguments arguments, Outcome outcome) {
    std::lock_guard lock(mutex_);
    scripts_.insert_or_assign(std::move(arguments), std::move(outcome));
  }
  void script(Arguments arguments, std::string stdoutText, int32_t returncode = 0, std::string stderrText = {}) {
    script(std::move(arguments), ToolResult{returncode, std::move(stdoutText), std::move(stderrText)});
  }
  // As if the tool were not installed.
  void scriptNotFound(Arguments arguments) { script(arguments, ToolError::notFound(arguments.at(0))); }
  // Answers argument vectors that have no script of their own. Without it they fail with
  // ToolError::notFound, as a tool that is not installed would.
  void scriptFallback(std::function<Outcome(const Arguments&)> fallback) {
    std::lock_guard lock(mutex_);
    fallback_ = std::move(fallback);
  }
  // Runs at the start of every call, outside the runner's lock: a test can request a stop
  // there, or look at the files at that moment.
  void onCall(std::function<void(const Call&)> hook) {
    std::lock_guard lock(mutex_);
    hook_ = std::move(hook);
  }

  std::vector<Call> calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  std::vector<Arguments> callArguments() const {
    std::vector<Arguments> out;
    for (const Call& call : calls()) out.push_back(call.arguments);
    return out;
  }

  // A call whose stop is requested by the time it is answered ends like a child terminated by
  // SIGTERM: returncode 15, no output. runStreaming hands each complete stdout line (without
  // its line feed) to onLine; a last line without a line feed is only in the result.
  ToolResult run(const Arguments& arguments, std::optional<double> timeout, std::stop_token stop = {}) override {
    return answer(Call{arguments, timeout, false, std::move(stop)}, nullptr);
  }
  ToolResult runStreaming(const Arguments& arguments, const LineCallback& onLine, std::stop_token stop = {}) override {
    return answer(Call{arguments, std::nullopt, true, std::move(stop)}, &onLine);
  }

 private:
  ToolResult answer(Call call, const LineCallback* onLine) {
    std::unique_lock lock(mutex_);
    calls_.push_back(call);
    if (const auto hook = hook_) {
      lock.unlock();
      hook(call);
      lock.lock();
    }
    const auto it = scripts_.find(call.arguments);
    std::optional<Outcome> outcome;
    if (it != scripts_.end()) outcome = it->second;
    const auto fallback = fallback_;
    lock.unlock();
    if (!outcome && fallback) outcome = fallback(call.arguments);
    if (!outcome) outcome = ToolError::notFound(call.arguments.empty() ? std::string() : call.arguments.front());

    if (call.stop.stop_requested()) return ToolResult{15, "", ""};
    if (const auto* error = std::get_if<ToolError>(&*outcome)) throw *error;
    const ToolResult& result = std::get<ToolResult>(*outcome);
    if (onLine != nullptr && *onLine)
      for (size_t start = 0, end; (end = result.stdoutText.find('\n', start)) != std::string::npos; start = end + 1)
        (*onLine)(result.stdoutText.substr(start, end - start));
    return result;
  }

  mutable std::mutex mutex_;
  std::map<Arguments, Outcome> scripts_;
  std::function<Outcome(const Arguments&)> fallback_;
  std::function<void(const Call&)> hook_;
  std::vector<Call> calls_;
};

}  // namespace vorlan::test

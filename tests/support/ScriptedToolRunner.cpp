#include "support/ScriptedToolRunner.hpp"

namespace vorlan::test {

void ScriptedToolRunner::script(Arguments arguments, Outcome outcome) {
  std::lock_guard lock(mutex_);
  scripts_.insert_or_assign(std::move(arguments), std::move(outcome));
}

void ScriptedToolRunner::script(Arguments arguments, std::string stdoutText, int32_t returncode,
                                std::string stderrText) {
  script(std::move(arguments), ToolResult{returncode, std::move(stdoutText), std::move(stderrText)});
}

void ScriptedToolRunner::scriptNotFound(Arguments arguments) {
  std::string name = arguments.empty() ? std::string() : arguments.front();
  script(std::move(arguments), ToolError::notFound(std::move(name)));
}

void ScriptedToolRunner::scriptTimeout(Arguments arguments) {
  Outcome outcome = ToolError::timeout(arguments);
  script(std::move(arguments), std::move(outcome));
}

void ScriptedToolRunner::scriptFallback(std::function<Outcome(const Arguments&)> fallback) {
  std::lock_guard lock(mutex_);
  fallback_ = std::move(fallback);
}

void ScriptedToolRunner::onCall(std::function<void(const Call&)> hook) {
  std::lock_guard lock(mutex_);
  hook_ = std::move(hook);
}

std::vector<ScriptedToolRunner::Call> ScriptedToolRunner::calls() const {
  std::lock_guard lock(mutex_);
  return calls_;
}

std::vector<ScriptedToolRunner::Arguments> ScriptedToolRunner::callArguments() const {
  std::lock_guard lock(mutex_);
  std::vector<Arguments> out;
  for (const Call& call : calls_) out.push_back(call.arguments);
  return out;
}

ToolResult ScriptedToolRunner::run(const Arguments& arguments, std::optional<double> timeout,
                                   std::stop_token stop) {
  return answer(Call{arguments, timeout, false, std::move(stop)}, nullptr);
}

ToolResult ScriptedToolRunner::runStreaming(const Arguments& arguments, const LineCallback& onLine,
                                            std::stop_token stop) {
  return answer(Call{arguments, std::nullopt, true, std::move(stop)}, &onLine);
}

ToolResult ScriptedToolRunner::answer(Call call, const LineCallback* onLine) {
  std::function<void(const Call&)> hook;
  {
    std::lock_guard lock(mutex_);
    calls_.push_back(call);
    hook = hook_;
  }
  if (hook) hook(call);

  std::optional<Outcome> outcome;
  std::function<Outcome(const Arguments&)> fallback;
  {
    std::lock_guard lock(mutex_);
    if (auto it = scripts_.find(call.arguments); it != scripts_.end()) outcome = it->second;
    fallback = fallback_;
  }
  if (!outcome && fallback) outcome = fallback(call.arguments);
  if (!outcome)
    outcome = ToolError::notFound(call.arguments.empty() ? std::string() : call.arguments.front());

  if (call.stop.stop_requested()) return ToolResult{15, "", ""};
  if (auto* error = std::get_if<ToolError>(&*outcome)) throw *error;

  const ToolResult& result = std::get<ToolResult>(*outcome);
  if (onLine != nullptr && *onLine) {
    const std::string& text = result.stdoutText;
    for (size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
      (*onLine)(text.substr(start, end - start));
  }
  return result;
}

}  // namespace vorlan::test

// The seam through which every measurement runs a command-line tool.
#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

namespace vorlan {

struct ToolResult {
  int32_t returncode = 0;  // exit status, or the signal's number when a signal ended it
  std::string stdoutText;
  std::string stderrText;
  bool operator==(const ToolResult&) const = default;
};

// A tool that could not be found, or that ran past its time limit.
struct ToolError : std::runtime_error {
  enum class Kind { notFound, timeout };
  Kind kind;
  std::string name;                     // notFound: the tool's name ("" for no arguments)
  std::vector<std::string> arguments;   // timeout: the whole argument list

  static ToolError notFound(std::string name);
  static ToolError timeout(std::vector<std::string> arguments);

 private:
  ToolError(Kind k, std::string what, std::string n, std::vector<std::string> args)
      : std::runtime_error(std::move(what)), kind(k), name(std::move(n)), arguments(std::move(args)) {}
};

using LineCallback = std::function<void(const std::string&)>;
// Whether a command-line tool is installed; callable from any thread.
using HasBinary = std::function<bool(const std::string&)>;

// run: optional time limit in seconds. runStreaming: onLine gets each complete stdout line,
// in order, never two calls at once. Both end the child with SIGTERM when `stop` is requested
// and then return normally; callers check for cancellation themselves.
class ToolRunning {
 public:
  virtual ~ToolRunning() = default;
  virtual ToolResult run(const std::vector<std::string>& arguments, std::optional<double> timeout,
                         std::stop_token stop = {}) = 0;
  virtual ToolResult runStreaming(const std::vector<std::string>& arguments,
                                  const LineCallback& onLine, std::stop_token stop = {}) = 0;
};

}  // namespace vorlan

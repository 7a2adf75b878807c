// The real tool runner: runs a command-line tool as a child process through /usr/bin/env and
// collects its output; plus the test of whether a tool is installed at all.
#pragma once
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scan/ToolRunning.hpp"

namespace vorlan {

// Each run is self-contained: the object holds only its fixed kill grace, so one runner may
// serve any number of threads at once.
//
// A run ends the child with SIGTERM when its time limit passes or `stop` is requested; a child
// still there `killGrace` after that gets SIGKILL. Throws ToolError::notFound for an empty
// argument list or exit status 127 (what env answers for a tool it cannot find),
// ToolError::timeout when the time limit ended the child, std::system_error when the child
// cannot be started, and whatever a line callback threw. The child is always reaped.
class ProcessToolRunner final : public ToolRunning {
 public:
  static constexpr std::chrono::milliseconds defaultKillGrace{5000};

  explicit ProcessToolRunner(std::chrono::milliseconds killGrace = defaultKillGrace);

  ToolResult run(const std::vector<std::string>& arguments, std::optional<double> timeout,
                 std::stop_token stop = {}) override;
  ToolResult runStreaming(const std::vector<std::string>& arguments, const LineCallback& onLine,
                          std::stop_token stop = {}) override;

 private:
  ToolResult launch(const std::vector<std::string>& arguments, std::optional<double> timeout,
                    const LineCallback& onLine, std::stop_token stop) const;

  std::chrono::milliseconds killGrace_;
};

// The PATH a child sees: the package managers' folders first, then our own PATH, or the
// system's folders when we have none.
std::string toolSearchPath(std::optional<std::string_view> ownPath);

// Whether `name` is an executable regular file in "/opt/homebrew/bin", "/usr/local/bin", a
// folder of the process's PATH, "/usr/bin" or "/bin". Callable from any thread.
bool defaultHasBinary(const std::string& name);
// The same search with `pathText` standing for the process's PATH.
bool hasBinaryOnPath(const std::string& name, std::string_view pathText);

}  // namespace vorlan

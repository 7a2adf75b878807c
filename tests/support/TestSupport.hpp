// Helpers every test module shares: a temporary folder per test, small file helpers and
// running a program as a child process with its own environment.
#pragma once
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vorlan::test {

// A fresh folder under the system's temporary folder, removed with everything in it
// (permissions restored first) when the object goes. Never copied: one owner removes it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& rel) const { return path_ / rel; }

 private:
  std::filesystem::path path_;
};

// Writes `content` to `path`, creating missing parent folders.
void writeFile(const std::filesystem::path& path, const std::string& content);
std::string readFile(const std::filesystem::path& path);
// Writes an executable shell script (with "#!/bin/sh" put before `body`).
void writeScript(const std::filesystem::path& path, const std::string& body);

struct ProcessOutcome {
  int exitCode = -1;  // exit status, or 128 + signal
  std::string out, err;
};

struct ProcessOptions {
  std::map<std::string, std::string> env;  // set on top of the test's own environment
  std::vector<std::string> unsetEnv = {};
  std::optional<std::string> stdinText = {};  // absent: stdin is at its end at once
  double timeoutSeconds = 60;              // killed after this, exitCode -1
};

ProcessOutcome runProcess(const std::vector<std::string>& argv, const ProcessOptions& options = {});

// The built `vorlan` executable.
std::string cliPath();
// Runs the built `vorlan` with `args`, HOME set to `home`.
ProcessOutcome runCli(const std::filesystem::path& home, std::vector<std::string> args, ProcessOptions options = {});

// A file that takes `bytes` of disk without writing them where the system allows, so that
// sizes measured from allocated blocks see it.
void allocateFile(const std::filesystem::path& path, int64_t bytes);

bool runningAsRoot();

}  // namespace vorlan::test

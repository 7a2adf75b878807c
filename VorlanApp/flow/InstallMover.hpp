// The acting half of the move into the applications folder: the old copy copies itself there,
// leaves a marker and starts the new copy; the new copy lets the old one go, ejects the disk
// image and names the image file that may go to the trash. Free functions over a set of seams,
// so that every step runs in tests with scripted tools and temporary folders.
#pragma once
#include <QString>

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "scan/ToolRunning.hpp"

namespace vorlan::app {

struct InstallMoverFailure : std::runtime_error {
  enum class Kind { copyFailed, relaunchFailed };
  Kind kind;
  std::string reason;
  InstallMoverFailure(Kind k, std::string why);
};

// What the mover touches beyond plain files: real by default (see realInstallSeams).
struct InstallSeams {
  std::filesystem::path bundlePath;     // the running bundle (or the bare executable)
  std::filesystem::path ownExecutable;  // this program's executable file
  std::function<ToolRunning&()> runner;                        // hdiutil and open
  std::function<std::vector<pid_t>(const std::string&)> otherInstances;
  std::function<bool(pid_t, const std::filesystem::path&)> runsExecutable;
  std::function<bool(pid_t)> isRunning;
  std::function<void(pid_t)> terminate;       // asked to quit
  std::function<void(pid_t)> forceTerminate;  // ended
  std::function<void(std::chrono::milliseconds)> sleep;
  std::function<void(const std::filesystem::path&)> trash;   // throws with a reason
  std::function<void(const std::string&)> eject;             // failures are silent
  bool applicationsWritable = false;                         // "/Applications"
};

InstallSeams realInstallSeams(ToolRunning& runner);

namespace InstallMover {

// "/Applications" when writable, else home/Applications (made here; a failure shows at copy).
std::filesystem::path destinationFolder(const std::filesystem::path& home, const InstallSeams& seams);

// `hdiutil info -plist`'s output; empty when the tool cannot run.
std::string hdiutilInfo(ToolRunning& runner);

// Where the bundle runs from, for the sheet's sentence.
QString originDescription(const std::string& bundlePath, const std::string& home);

// Copies the bundle into the applications folder (an older copy goes to the trash first),
// writes the marker and starts the copy. Returns once the copy runs: the caller then ends this
// process. Throws InstallMoverFailure.
void moveAndRelaunch(const std::filesystem::path& home, const InstallSeams& seams);

// In the new copy: consumes the marker, lets the old process go (only when its id still runs
// this program), ejects the image and gives the image file to offer to the trash.
std::optional<std::string> finishAfterMove(const std::filesystem::path& home, const InstallSeams& seams);

// The platform's trash; throws std::runtime_error with a Korean reason.
void trash(const std::filesystem::path& path);

}  // namespace InstallMover
}  // namespace vorlan::app

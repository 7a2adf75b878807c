#include "platform/ProcessIdentity.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>

#ifdef __APPLE__
#include <libproc.h>
#endif

namespace vorlan {

std::optional<std::filesystem::path> executableOfProcess(pid_t pid) {
  if (pid <= 0) return std::nullopt;
#ifdef __APPLE__
  char buffer[PROC_PIDPATHINFO_MAXSIZE];
  const int length = proc_pidpath(pid, buffer, sizeof buffer);
  if (length <= 0) return std::nullopt;
  return std::filesystem::path(std::string(buffer, static_cast<size_t>(length)));
#else
  char buffer[PATH_MAX];
  const std::string link = "/proc/" + std::to_string(pid) + "/exe";
  const ssize_t length = ::readlink(link.c_str(), buffer, sizeof buffer);
  if (length <= 0 || static_cast<size_t>(length) >= sizeof buffer) return std::nullopt;
  return std::filesystem::path(std::string(buffer, static_cast<size_t>(length)));
#endif
}

bool processRunsExecutable(pid_t pid, const std::filesystem::path& executable) {
  const auto running = executableOfProcess(pid);
  if (!running) return false;
  struct stat a {}, b {};
  if (::stat(running->c_str(), &a) != 0 || ::stat(executable.c_str(), &b) != 0) return false;
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace vorlan

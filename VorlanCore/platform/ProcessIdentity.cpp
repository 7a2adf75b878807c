#include "platform/ProcessIdentity.hpp"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
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

std::vector<pid_t> processesRunningFrom(std::string_view folder) {
  std::vector<pid_t> pids;
#ifdef __APPLE__
  std::vector<pid_t> all(static_cast<size_t>(proc_listallpids(nullptr, 0)) + 64);
  const int count = proc_listallpids(all.data(), static_cast<int>(all.size() * sizeof(pid_t)));
  all.resize(count > 0 ? static_cast<size_t>(count) : 0);
#else
  std::vector<pid_t> all;
  if (DIR* proc = ::opendir("/proc")) {
    while (const dirent* entry = ::readdir(proc)) {
      char* end = nullptr;
      const long pid = std::strtol(entry->d_name, &end, 10);
      if (pid > 0 && *end == '\0') all.push_back(static_cast<pid_t>(pid));
    }
    ::closedir(proc);
  }
#endif
  for (pid_t pid : all) {
    if (pid == ::getpid()) continue;
    const auto exe = executableOfProcess(pid);
    if (!exe) continue;
    const std::string path = exe->string();
    if (path == folder || (path.size() > folder.size() && path.starts_with(folder) &&
                           path[folder.size()] == '/'))
      pids.push_back(pid);
  }
  return pids;
}

}  // namespace vorlan

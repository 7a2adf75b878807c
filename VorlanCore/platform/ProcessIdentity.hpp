// Which program a process id runs now: a process id kept on disk may since have been given
// to an unrelated program, which must never be waited on or ended in our name.
#pragma once
#include <filesystem>
#include <optional>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace vorlan {

// The executable file of process `pid`; nothing when no such process runs or it can't be read.
std::optional<std::filesystem::path> executableOfProcess(pid_t pid);

// Whether `pid` runs the same executable file as `executable` (compared by device and inode,
// so a link or another spelling of the path still matches).
bool processRunsExecutable(pid_t pid, const std::filesystem::path& executable);

// Processes other than this one whose executable lies at or under `folder`.
std::vector<pid_t> processesRunningFrom(std::string_view folder);

}  // namespace vorlan

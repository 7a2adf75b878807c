// Reading a small regular file whole: manifests, journals, Info.plist files, the install id.
// Nothing read here follows a link or waits: a pipe, socket or device where a file should be
// is treated as unreadable, never opened for reading.
#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace vorlan {

inline constexpr int64_t kSmallFileLimit = 16 * 1024 * 1024;

// The file's bytes, or nothing when it is missing, not a regular file, a symlink (the last
// component is never followed), larger than `maxBytes`, or unreadable.
std::optional<std::string> readRegularFile(const std::filesystem::path& path, int64_t maxBytes = kSmallFileLimit);
// The same for `name` inside an open folder.
std::optional<std::string> readRegularFileAt(int dirfd, const std::string& name, int64_t maxBytes = kSmallFileLimit);

// Opens `name` in `dirfd` with `flags` plus no-follow, no-wait and close-on-exec, and keeps it
// only when it is a regular file; -1 otherwise (errno says why, EINVAL for a non-regular file).
int openRegularFileAt(int dirfd, const std::string& name, int flags, unsigned mode = 0);

}  // namespace vorlan

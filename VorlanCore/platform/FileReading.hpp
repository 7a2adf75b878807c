// Reading a small regular file whole: manifests, Info.plist files, the install id.
#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace vorlan {

// The file's bytes, or nothing when it is missing, not a regular file, a symlink (the last
// component is never followed), larger than `maxBytes`, or unreadable.
std::optional<std::string> readRegularFile(const std::filesystem::path& path,
                                           int64_t maxBytes = 16 * 1024 * 1024);

}  // namespace vorlan

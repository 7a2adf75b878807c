// The volume's own figures: size, free space and the "used" figure the system's settings show.
// Read with statvfs, which answers the same on Linux and macOS.
#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>

namespace vorlan {

struct DiskUsage {
  int64_t total = 0;  // block size × blocks
  int64_t free = 0;   // block size × all free blocks, including those kept for the superuser
  bool operator==(const DiskUsage&) const = default;
};

// Both figures 0 when the volume cannot be read.
DiskUsage diskUsage(const std::filesystem::path& path);

// Total less the space available to ordinary users, never below 0; absent when unreadable.
std::optional<int64_t> settingsUsedBytes(const std::filesystem::path& path);

}  // namespace vorlan

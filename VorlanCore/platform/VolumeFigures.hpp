// The volume's own figures: size, free space and the "used" figure the system's settings show.
// Read with statvfs, which answers on Linux and macOS alike.
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

// The "used" figure the system's own storage view shows; absent when unreadable, never below 0.
// macOS: total less the space available to the user, as its settings count it.
// Linux: total less all free blocks, the "Used" of `df`, so that it and `diskUsage().free` add
// up to the total on the report's first lines (reserved blocks would otherwise count as used).
std::optional<int64_t> settingsUsedBytes(const std::filesystem::path& path);

}  // namespace vorlan

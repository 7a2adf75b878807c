// Where something is mounted. A bind mount shows the same device number as the folder it sits
// in, so comparing st_dev misses it: the system's own mount table (Linux: /proc/self/mountinfo
// and the statx mount-root attribute; macOS: getmntinfo) is what tells.
#pragma once
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

namespace vorlan {

// The mount points in the table that are `folder` itself or lie below it, `folder` taken with
// its links resolved. Empty when nothing is mounted there (or the table can't be read).
std::vector<std::string> mountPointsWithin(const std::filesystem::path& folder);

// Whether the entry `name` of the open folder `dirfd` is the root of a mount. `st` is its
// lstat, `parentDevice` the device of `dirfd`.
bool isMountRoot(int dirfd, const std::string& name, const struct stat& st, dev_t parentDevice);

}  // namespace vorlan

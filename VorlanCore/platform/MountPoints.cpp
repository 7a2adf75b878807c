#include "platform/MountPoints.hpp"

#include <fcntl.h>
#include <unistd.h>
#if defined(__APPLE__)
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/ucred.h>
#endif

#include <cerrno>
#include <climits>

#include "platform/FileReading.hpp"

namespace vorlan {
namespace {

bool atOrBelow(const std::string& path, const std::string& base) {
  if (path == base) return true;
  const std::string prefix = base == "/" ? base : base + "/";
  return path.size() > prefix.size() && path.compare(0, prefix.size(), prefix) == 0;
}

#if defined(__linux__)
// The table writes space, tab, newline and backslash in a path as \ and three octal digits.
std::string unescapeMountPath(std::string_view field) {
  auto octal = [&](size_t k) { return k < field.size() && field[k] >= '0' && field[k] <= '7'; };
  std::string out;
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && octal(i + 1) && octal(i + 2) && octal(i + 3)) {
      out += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0'));
      i += 3;
    } else {
      out += field[i];
    }
  }
  return out;
}

std::vector<std::string> allMountPoints() {
  std::vector<std::string> points;
  const auto table = readRegularFile("/proc/self/mountinfo");
  if (!table) return points;
  size_t start = 0;
  while (start < table->size()) {
    size_t end = table->find('\n', start);
    if (end == std::string::npos) end = table->size();
    std::string_view line(table->data() + start, end - start);
    // id, parent id, major:minor, root, mount point, …
    size_t at = 0;
    for (int field = 0; field < 4 && at != std::string_view::npos; ++field) {
      at = line.find(' ', at);
      if (at != std::string_view::npos) ++at;
    }
    if (at != std::string_view::npos) {
      const size_t stop = line.find(' ', at);
      points.push_back(unescapeMountPath(line.substr(at, stop == std::string_view::npos ? stop : stop - at)));
    }
    start = end + 1;
  }
  return points;
}
#elif defined(__APPLE__)
std::vector<std::string> allMountPoints() {
  std::vector<std::string> points;
  struct statfs* mounts = nullptr;
  const int count = ::getmntinfo(&mounts, MNT_NOWAIT);
  for (int i = 0; i < count; ++i) points.emplace_back(mounts[i].f_mntonname);
  return points;
}
#else
std::vector<std::string> allMountPoints() { return {}; }
#endif

// The path of an open folder, as the system knows it; empty when it can't say.
std::string pathOfFolder(int dirfd) {
#if defined(__APPLE__)
  char buffer[MAXPATHLEN];
  if (::fcntl(dirfd, F_GETPATH, buffer) == 0) return buffer;
  return {};
#else
  char buffer[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(dirfd);
  const ssize_t n = ::readlink(link.c_str(), buffer, sizeof buffer - 1);
  if (n <= 0) return {};
  return std::string(buffer, static_cast<size_t>(n));
#endif
}

}  // namespace

std::vector<std::string> mountPointsWithin(const std::filesystem::path& folder) {
  std::error_code ec;
  const auto real = std::filesystem::canonical(folder, ec);
  if (ec) return {};
  std::vector<std::string> found;
  for (auto& point : allMountPoints())
    if (atOrBelow(point, real.string())) found.push_back(std::move(point));
  return found;
}

bool isMountRoot(int dirfd, const std::string& name, const struct stat& st, dev_t parentDevice) {
  if (st.st_dev != parentDevice) return true;
#if defined(__linux__) && defined(STATX_ATTR_MOUNT_ROOT)
  struct statx sx {};
  if (::statx(dirfd, name.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_BASIC_STATS, &sx) == 0 &&
      (sx.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT))
    return (sx.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
#endif
  // Without the attribute: look the entry's path up in the table. Links are never mount
  // points, and a regular file is one only on Linux, where the attribute answers.
  if (!S_ISDIR(st.st_mode)) return false;
  const std::string parent = pathOfFolder(dirfd);
  if (parent.empty()) return false;
  const std::string path = parent == "/" ? "/" + name : parent + "/" + name;
  for (const auto& point : allMountPoints())
    if (point == path) return true;
  return false;
}

}  // namespace vorlan

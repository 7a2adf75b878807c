#include "platform/UsageMeasurement.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "Cancelled.hpp"

namespace vorlan {

namespace {

// A folder handle that pending subfolders are opened relative to. Paths are kept short
// against such handles, so trees deeper than the system's path limit are still walked
// without recursion and without one open handle per level.
struct Anchor {
  int fd;
  explicit Anchor(int fd) : fd(fd) {}
  ~Anchor() { ::close(fd); }
  Anchor(const Anchor&) = delete;
  Anchor& operator=(const Anchor&) = delete;
};

struct PendingFolder {
  std::shared_ptr<Anchor> anchor;  // null: relative to the working directory (or absolute)
  std::string relative;
};

// Past this many bytes of relative path a folder becomes an anchor of its own.
constexpr size_t kAnchorAfter = 2048;

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

int64_t allocatedBytes(const struct stat& st) { return static_cast<int64_t>(st.st_blocks) * 512; }

int64_t modificationSeconds(const struct stat& st) {
#ifdef __APPLE__
  return static_cast<int64_t>(st.st_mtimespec.tv_sec);
#else
  return static_cast<int64_t>(st.st_mtim.tv_sec);
#endif
}

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

UsageStat walkTree(const std::filesystem::path& folder, std::stop_token stop) {
  UsageStat stat;
  // Every name counts with its blocks, hard links included: the walk adds what it lists and
  // keeps no table of files seen, so its memory does not grow with the tree.
  std::vector<PendingFolder> stack;
  stack.push_back({nullptr, folder.string()});

  while (!stack.empty()) {
    throwIfCancelled(stop);
    PendingFolder current = std::move(stack.back());
    stack.pop_back();

    int base = current.anchor ? current.anchor->fd : AT_FDCWD;
    int fd = ::openat(base, current.relative.c_str(), kOpenFolder);
    if (fd < 0) continue;  // unreadable or replaced meanwhile: it adds nothing

    // Subfolders of a folder with a long path are opened relative to a handle on it.
    std::shared_ptr<Anchor> childAnchor = current.anchor;
    std::string childPrefix = current.relative;
    if (current.relative.size() >= kAnchorAfter) {
      int anchorFd = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
      if (anchorFd < 0) {
        ::close(fd);
        continue;
      }
      childAnchor = std::make_shared<Anchor>(anchorFd);
      childPrefix.clear();
    }

    DIR* listing = ::fdopendir(fd);
    if (!listing) {
      ::close(fd);
      continue;
    }
    while (dirent* child = ::readdir(listing)) {
      if (isDotOrDotDot(child->d_name)) continue;
      struct stat st;
      if (::fstatat(fd, child->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
      const auto type = st.st_mode & S_IFMT;
      stat.bytes += allocatedBytes(st);
      if (type == S_IFDIR) {
        std::string relative = childPrefix.empty() ? std::string(child->d_name)
                                                   : childPrefix + '/' + child->d_name;
        stack.push_back({childAnchor, std::move(relative)});
      } else if (type == S_IFREG) {
        stat.fileCount += 1;
        stat.lastChangedEpoch = std::max(stat.lastChangedEpoch, modificationSeconds(st));
      }
    }
    ::closedir(listing);
  }
  return stat;
}

ChildFolders childFolders(const std::filesystem::path& folder) {
  ChildFolders result;
  // The parent itself may be a link to a folder elsewhere; only what lies below is never
  // followed.
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    result.missing = errno == ENOENT;
    return result;
  }
  DIR* listing = ::fdopendir(fd);
  if (!listing) {
    ::close(fd);
    return result;
  }
  result.listed = true;
  while (dirent* child = ::readdir(listing)) {
    if (isDotOrDotDot(child->d_name)) continue;
    struct stat st;
    if (::fstatat(fd, child->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (S_ISDIR(st.st_mode)) result.names.emplace_back(child->d_name);
  }
  ::closedir(listing);
  return result;
}

std::map<std::string, UsageStat> measureChildren(const std::filesystem::path& folder) {
  std::map<std::string, UsageStat> children;
  for (const auto& name : childFolders(folder).names) children[name] = walkTree(folder / name);
  return children;
}

int64_t measureItem(const std::filesystem::path& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return 0;
  int64_t bytes = allocatedBytes(st);
  if (S_ISDIR(st.st_mode)) bytes += walkTree(path).bytes;
  return bytes;
}

}  // namespace vorlan

#include "quarantine/FileMover.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#if defined(__APPLE__)
#include <stdio.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <map>
#include <random>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/MountPoints.hpp"

namespace vorlan {
namespace {

[[noreturn]] void throwError(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};

int openFolderAt(int dirfd, const std::string& name) {
  return ::openat(dirfd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

std::vector<std::string> components(std::string_view relative) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= relative.size()) {
    size_t end = relative.find('/', start);
    if (end == std::string_view::npos) end = relative.size();
    std::string_view part = relative.substr(start, end - start);
    if (part == "..") throwError(EINVAL, std::string(relative));
    if (!part.empty() && part != ".") parts.emplace_back(part);
    start = end + 1;
  }
  return parts;
}

void flushDescriptor(int fd) {
#ifdef F_FULLFSYNC
  if (::fcntl(fd, F_FULLFSYNC) == 0) return;
#endif
  if (::fsync(fd) != 0) throwError(errno, "fsync");
}

// Exclusive rename: the target name must be free, and this is decided by the kernel in the
// same step as the rename wherever the system offers it.
int renameNoReplace(int fromDir, const std::string& fromName, int toDir, const std::string& toName) {
#if defined(__linux__)
  if (::renameat2(fromDir, fromName.c_str(), toDir, toName.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
#elif defined(__APPLE__)
  if (::renameatx_np(fromDir, fromName.c_str(), toDir, toName.c_str(), RENAME_EXCL) == 0) return 0;
  if (errno != ENOTSUP && errno != EINVAL) return errno;
#endif
  // The file system cannot rename exclusively: look just before renaming. A file created in
  // the instant between the two calls would be replaced; no better is possible there.
  struct stat st;
  if (::fstatat(toDir, toName.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  if (::renameat(fromDir, fromName.c_str(), toDir, toName.c_str()) == 0) return 0;
  return errno;
}

std::vector<std::string> listNames(int dirfd, const std::string& what) {
  int copy = ::fcntl(dirfd, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) throwError(errno, what);
  DIR* dir = ::fdopendir(copy);
  if (!dir) {
    int saved = errno;
    ::close(copy);
    throwError(saved, what);
  }
  ::rewinddir(dir);
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    dirent* entry = ::readdir(dir);
    if (!entry) break;
    std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  int saved = errno;
  ::closedir(dir);
  if (saved != 0) throwError(saved, what);
  return names;
}

bool runningAsRoot() { return ::geteuid() == 0; }

bool sameMoment(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

#if defined(__APPLE__)
const timespec& modified(const struct stat& st) { return st.st_mtimespec; }
const timespec& accessed(const struct stat& st) { return st.st_atimespec; }
#else
const timespec& modified(const struct stat& st) { return st.st_mtim; }
const timespec& accessed(const struct stat& st) { return st.st_atim; }
#endif

// What a copy took from the source, so that removing the source afterwards takes exactly
// that and nothing that appeared or changed in the meantime.
struct CopiedNode {
  std::string name;
  struct stat st {};
  std::vector<CopiedNode> children;
};

struct CopyState {
  const FileFaults* faults = nullptr;
  int64_t written = 0;
  // Hard links: the first copy of each file with more than one name, by its path below the
  // folder the copy is made in, so that its other names become links to it again.
  int copyFolder = -1;
  std::map<std::pair<dev_t, ino_t>, std::string> firstCopies;
};

void copyBytes(int in, int out, off_t from, off_t to, CopyState& state, const std::string& what) {
  static constexpr size_t kBlock = 1 << 20;
  std::vector<char> buffer(static_cast<size_t>(std::min<off_t>(kBlock, std::max<off_t>(to - from, 1))));
  off_t at = from;
  while (at < to) {
    size_t want = static_cast<size_t>(std::min<off_t>(static_cast<off_t>(buffer.size()), to - at));
    ssize_t got = ::pread(in, buffer.data(), want, at);
    if (got < 0) {
      if (errno == EINTR) continue;
      throwError(errno, what);
    }
    // The file grew shorter while it was read: the copy would not be the file.
    if (got == 0) throwError(EAGAIN, what + ": changed while being copied");
    if (state.faults && state.faults->copyWrite) {
      if (int injected = state.faults->copyWrite(state.written)) throwError(injected, what);
    }
    size_t done = 0;
    while (done < static_cast<size_t>(got)) {
      ssize_t put = ::pwrite(out, buffer.data() + done, static_cast<size_t>(got) - done, at + static_cast<off_t>(done));
      if (put < 0) {
        if (errno == EINTR) continue;
        throwError(errno, what);
      }
      done += static_cast<size_t>(put);
    }
    state.written += got;
    at += got;
  }
}

// Copies the data of a regular file, leaving holes as holes where the system tells where
// they are, so that a sparse disk image does not swell to its full length.
void copyFileData(int in, int out, off_t size, CopyState& state, const std::string& what) {
  off_t at = 0;
  bool knowsHoles = true;
  while (at < size) {
    off_t dataStart = at, dataEnd = size;
    if (knowsHoles) {
      off_t found = ::lseek(in, at, SEEK_DATA);
      if (found < 0 && errno == ENXIO) break;  // only a hole remains
      if (found < 0) {
        knowsHoles = false;
      } else {
        dataStart = found;
        off_t hole = ::lseek(in, found, SEEK_HOLE);
        dataEnd = hole < 0 ? size : std::min(hole, size);
      }
    }
    if (dataStart >= size) break;
    copyBytes(in, out, dataStart, dataEnd, state, what);
    at = dataEnd;
  }
  if (::ftruncate(out, size) != 0) throwError(errno, what);
}

void keepOwner(int fd, const struct stat& st) {
  // Only the superuser can give a file away; for anyone else the copy is theirs already.
  if (runningAsRoot()) (void)!::fchown(fd, st.st_uid, st.st_gid);
}

CopiedNode copyEntry(int fromDir, const std::string& name, int toDir, const std::string& toName,
                     const std::string& toPath, CopyState& state, bool& created, const dev_t* within = nullptr);

void copyFolderContents(int fromFolder, int toFolder, const std::string& toPath, CopiedNode& node,
                        CopyState& state, const std::string& what) {
  for (const auto& child : listNames(fromFolder, what)) {
    bool childCreated = false;
    node.children.push_back(
        copyEntry(fromFolder, child, toFolder, child, toPath + "/" + child, state, childCreated, &node.st.st_dev));
  }
}

CopiedNode copyEntry(int fromDir, const std::string& name, int toDir, const std::string& toName,
                     const std::string& toPath, CopyState& state, bool& created, const dev_t* within) {
  CopiedNode node;
  node.name = name;
  struct stat& st = node.st;
  if (::fstatat(fromDir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) throwError(errno, name);
  // Something mounted inside the item (a network share, a disk image, a bind mount of any
  // folder) is not the user's folder: copying it would have the move delete its files
  // afterwards. The whole move is refused and the source stays as it is.
  if (within && isMountRoot(fromDir, name, st, *within)) throwError(EXDEV, name);
  const timespec times[2] = {accessed(st), modified(st)};

  if (S_ISREG(st.st_mode) && st.st_nlink > 1) {
    const auto key = std::make_pair(st.st_dev, st.st_ino);
    if (auto first = state.firstCopies.find(key); first != state.firstCopies.end()) {
      if (::linkat(state.copyFolder, first->second.c_str(), toDir, toName.c_str(), 0) != 0) throwError(errno, toName);
      created = true;
      return node;
    }
    state.firstCopies.emplace(key, toPath);
  }

  switch (st.st_mode & S_IFMT) {
    case S_IFREG: {
      Fd in(::openat(fromDir, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
      if (in.get() < 0) throwError(errno, name);
      struct stat opened;
      if (::fstat(in.get(), &opened) != 0) throwError(errno, name);
      if (opened.st_ino != st.st_ino || opened.st_dev != st.st_dev) throwError(EAGAIN, name + ": replaced while being copied");
      Fd out(::openat(toDir, toName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
      if (out.get() < 0) throwError(errno, toName);
      created = true;
      copyFileData(in.get(), out.get(), st.st_size, state, name);
      // Verified: the source is as it was when the copy began, and the copy is as long.
      struct stat after, copy;
      if (::fstat(in.get(), &after) != 0 || ::fstat(out.get(), &copy) != 0) throwError(errno, name);
      if (after.st_size != st.st_size || !sameMoment(modified(after), modified(st)))
        throwError(EAGAIN, name + ": changed while being copied");
      if (copy.st_size != st.st_size) throwError(EIO, name + ": copy is incomplete");
      keepOwner(out.get(), st);
      if (::fchmod(out.get(), st.st_mode & 07777) != 0) throwError(errno, toName);
      if (::futimens(out.get(), times) != 0) throwError(errno, toName);
      flushDescriptor(out.get());
      if (::close(out.release()) != 0) throwError(errno, toName);
      break;
    }
    case S_IFLNK: {
      std::string target(static_cast<size_t>(std::max<off_t>(st.st_size, 0)) + 1, '\0');
      for (;;) {
        ssize_t n = ::readlinkat(fromDir, name.c_str(), target.data(), target.size());
        if (n < 0) throwError(errno, name);
        if (static_cast<size_t>(n) < target.size()) {
          target.resize(static_cast<size_t>(n));
          break;
        }
        target.resize(target.size() * 2);
      }
      if (::symlinkat(target.c_str(), toDir, toName.c_str()) != 0) throwError(errno, toName);
      created = true;
      if (runningAsRoot()) (void)!::fchownat(toDir, toName.c_str(), st.st_uid, st.st_gid, AT_SYMLINK_NOFOLLOW);
      // Some systems cannot set a link's own times; the link and its target are whole anyway.
      (void)::utimensat(toDir, toName.c_str(), times, AT_SYMLINK_NOFOLLOW);
      break;
    }
    case S_IFDIR: {
      Fd in(openFolderAt(fromDir, name));
      if (in.get() < 0) throwError(errno, name);
      struct stat opened;
      if (::fstat(in.get(), &opened) != 0) throwError(errno, name);
      if (opened.st_ino != st.st_ino || opened.st_dev != st.st_dev) throwError(EAGAIN, name + ": replaced while being copied");
      if (::mkdirat(toDir, toName.c_str(), 0700) != 0) throwError(errno, toName);
      created = true;
      Fd out(openFolderAt(toDir, toName));
      if (out.get() < 0) throwError(errno, toName);
      copyFolderContents(in.get(), out.get(), toPath, node, state, name);
      keepOwner(out.get(), st);
      // Mode and times last: writing the children would change the times, and a read-only
      // mode would have kept them out.
      if (::fchmod(out.get(), st.st_mode & 07777) != 0) throwError(errno, toName);
      flushDescriptor(out.get());
      if (::futimens(out.get(), times) != 0) throwError(errno, toName);
      break;
    }
    default: {
      // Pipes, sockets and device nodes are made anew; a node that cannot be made fails the
      // copy, and the source stays.
      if (::mknodat(toDir, toName.c_str(), st.st_mode, st.st_rdev) != 0) throwError(errno, toName);
      created = true;
      (void)::fchmodat(toDir, toName.c_str(), st.st_mode & 07777, 0);
      (void)::utimensat(toDir, toName.c_str(), times, AT_SYMLINK_NOFOLLOW);
      break;
    }
  }
  return node;
}

int unlinkOpeningParent(int dirfd, const std::string& name, int flags) {
  if (::unlinkat(dirfd, name.c_str(), flags) == 0) return 0;
  if (errno != EACCES && errno != EPERM) return errno;
  // A folder without write permission keeps its entries; open it up, as its owner may.
  struct stat st;
  if (::fstat(dirfd, &st) != 0) return errno;
  if (::fchmod(dirfd, (st.st_mode & 07777) | S_IRWXU) != 0) return errno;
  if (::unlinkat(dirfd, name.c_str(), flags) == 0) return 0;
  return errno;
}

// Removes what the copy took, comparing each entry with what was copied: anything new or
// changed stays. Returns whether the source is entirely gone.
bool removeCopied(int dirfd, const CopiedNode& node) {
  struct stat now;
  if (::fstatat(dirfd, node.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
  if (now.st_ino != node.st.st_ino || now.st_dev != node.st.st_dev ||
      (now.st_mode & S_IFMT) != (node.st.st_mode & S_IFMT))
    return false;
  if (S_ISDIR(now.st_mode)) {
    Fd folder(openFolderAt(dirfd, node.name));
    if (folder.get() < 0) return false;
    if ((now.st_mode & S_IRWXU) != S_IRWXU) (void)::fchmod(folder.get(), (now.st_mode & 07777) | S_IRWXU);
    bool whole = true;
    for (const auto& child : node.children) whole = removeCopied(folder.get(), child) && whole;
    if (!whole) return false;
    return unlinkOpeningParent(dirfd, node.name, AT_REMOVEDIR) == 0;
  }
  if (S_ISREG(now.st_mode) &&
      (now.st_size != node.st.st_size || !sameMoment(modified(now), modified(node.st))))
    return false;
  return unlinkOpeningParent(dirfd, node.name, 0) == 0;
}

void checkpoint(const FileFaults* faults, std::string_view point, std::string_view label) {
  if (faults && faults->checkpoint) faults->checkpoint(point, label);
}

}  // namespace

DirHandle::~DirHandle() {
  if (fd_ >= 0) ::close(fd_);
}

DirHandle& DirHandle::operator=(DirHandle&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

DirHandle DirHandle::open(const std::filesystem::path& folder) {
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) throwError(errno, folder.string());
  return DirHandle(fd);
}

DirHandle openBelow(const DirHandle& base, std::string_view relative) {
  auto parts = components(relative);
  Fd current(::fcntl(base.fd(), F_DUPFD_CLOEXEC, 0));
  if (current.get() < 0) throwError(errno, std::string(relative));
  for (const auto& part : parts) {
    Fd next(openFolderAt(current.get(), part));
    if (next.get() < 0) throwError(errno, std::string(relative));
    current.reset(next.release());
  }
  return DirHandle(current.release());
}

DirHandle makeFoldersBelow(const DirHandle& base, std::string_view relative, unsigned mode) {
  auto parts = components(relative);
  Fd current(::fcntl(base.fd(), F_DUPFD_CLOEXEC, 0));
  if (current.get() < 0) throwError(errno, std::string(relative));
  for (const auto& part : parts) {
    int next = openFolderAt(current.get(), part);
    if (next < 0 && errno == ENOENT) {
      if (::mkdirat(current.get(), part.c_str(), static_cast<mode_t>(mode)) != 0 && errno != EEXIST)
        throwError(errno, std::string(relative));
      next = openFolderAt(current.get(), part);
    }
    if (next < 0) throwError(errno, std::string(relative));
    current.reset(next);
  }
  return DirHandle(current.release());
}

bool entryExists(const DirHandle& dir, const std::string& name) {
  struct stat st;
  if (::fstatat(dir.fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return true;
  return errno != ENOENT;
}

MoveOutcome moveEntry(const DirHandle& from, const std::string& fromName, const DirHandle& to,
                      const std::string& toName, const std::string& partialName,
                      const FileFaults* faults, std::string_view label, const std::function<void()>& placed) {
  int error = faults && faults->rename ? faults->rename(fromName, toName) : 0;
  if (error == 0) error = renameNoReplace(from.fd(), fromName, to.fd(), toName);
  if (error == 0) {
    syncFolder(to);
    syncFolder(from);
    return MoveOutcome::renamed;
  }
  if (error != EXDEV) throwError(error, fromName);

  if (entryExists(to, toName)) throwError(EEXIST, toName);
  // A rename needs write permission on the folder the entry leaves; the copy is held to the
  // same, so that the source can be removed afterwards without opening up that folder, which
  // is the user's and not part of what moves.
  if (::faccessat(from.fd(), ".", W_OK | X_OK, AT_EACCESS) != 0) throwError(errno, fromName);
  CopyState state{faults, 0, to.fd(), {}};
  bool created = false;
  CopiedNode copied;
  try {
    copied = copyEntry(from.fd(), fromName, to.fd(), partialName, partialName, state, created);
    syncFolder(to);
    checkpoint(faults, "copied", label);
    // The copy is whole under its temporary name; whoever journals the move learns it before
    // the copy takes the target's name and any of the source goes.
    if (placed) placed();
  } catch (...) {
    // Only what this copy made goes: a name that was taken before is left alone.
    if (created) {
      try {
        removeTree(to, partialName);
      } catch (const std::system_error&) {
      }
    }
    throw;
  }
  if (int renamed = renameNoReplace(to.fd(), partialName, to.fd(), toName); renamed != 0) {
    try {
      removeTree(to, partialName);
    } catch (const std::system_error&) {
    }
    throwError(renamed, toName);
  }
  syncFolder(to);
  checkpoint(faults, "placed", label);
  bool whole = removeCopied(from.fd(), copied);
  syncFolder(from);
  return whole ? MoveOutcome::copied : MoveOutcome::copiedSourceLeft;
}

namespace {

// A removal that holds only a few folder handles however deep the tree: deeper levels are
// closed and, when the walk comes back up, opened again by name from the nearest open level,
// each checked to be the very folder that was there before. So a tree deeper than the
// open-file limit can still be purged.
class TreeRemoval {
 public:
  explicit TreeRemoval(int holder) : holder_(holder) {}
  ~TreeRemoval() {
    for (auto& level : levels_)
      if (level.fd >= 0) ::close(level.fd);
  }
  TreeRemoval(const TreeRemoval&) = delete;
  TreeRemoval& operator=(const TreeRemoval&) = delete;

  void run(const std::string& name) {
    struct stat holder, st;
    if (::fstat(holder_, &holder) != 0) throwError(errno, name);
    if (!examine(holder_, name, holder.st_dev, st)) return;
    if (!S_ISDIR(st.st_mode)) return unlinkEntry(holder_, name, 0);
    enter(holder_, name, st);
    while (!levels_.empty()) {
      const size_t top = levels_.size() - 1;
      if (levels_[top].next < levels_[top].children.size()) {
        const std::string child = levels_[top].children[levels_[top].next++];
        const int folder = handle(top);
        if (!examine(folder, child, levels_[top].dev, st)) continue;
        if (S_ISDIR(st.st_mode))
          enter(folder, child, st);
        else
          unlinkEntry(folder, child, 0);
        continue;
      }
      const std::string done = levels_[top].name;
      if (levels_[top].fd >= 0) ::close(levels_[top].fd);
      levels_.pop_back();
      unlinkEntry(levels_.empty() ? holder_ : handle(levels_.size() - 1), done, AT_REMOVEDIR);
    }
  }

 private:
  static constexpr size_t kOpenLevels = 16;

  struct Level {
    std::string name;
    dev_t dev;
    ino_t ino;
    int fd = -1;
    std::vector<std::string> children;
    size_t next = 0;
  };

  // False when the entry is gone. Whatever is mounted anywhere below stays: the removal stops.
  static bool examine(int folder, const std::string& name, dev_t folderDevice, struct stat& st) {
    if (::fstatat(folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) return false;
      throwError(errno, name);
    }
    if (isMountRoot(folder, name, st, folderDevice)) throwError(EXDEV, name);
    return true;
  }

  static void unlinkEntry(int folder, const std::string& name, int flags) {
    if (int error = unlinkOpeningParent(folder, name, flags); error != 0 && error != ENOENT) throwError(error, name);
  }

  int openChecked(int parent, const std::string& name, const struct stat& st) {
    int fd = openFolderAt(parent, name);
    if (fd < 0 && errno == EACCES) {
      // Unreadable: it was a folder a moment ago, and it lies in a folder of ours; giving its
      // owner the permissions back is what lets it be emptied.
      if (::fchmodat(parent, name.c_str(), (st.st_mode & 07777) | S_IRWXU, 0) != 0) throwError(errno, name);
      fd = openFolderAt(parent, name);
    }
    if (fd < 0) throwError(errno, name);
    struct stat opened;
    if (::fstat(fd, &opened) != 0 || opened.st_dev != st.st_dev || opened.st_ino != st.st_ino) {
      ::close(fd);
      throwError(EAGAIN, name);
    }
    return fd;
  }

  void enter(int parent, const std::string& name, const struct stat& st) {
    const int fd = openChecked(parent, name, st);
    Level level{name, st.st_dev, st.st_ino, fd, {}, 0};
    levels_.push_back(std::move(level));
    if ((st.st_mode & S_IRWXU) != S_IRWXU && ::fchmod(fd, (st.st_mode & 07777) | S_IRWXU) != 0)
      throwError(errno, name);
    levels_.back().children = listNames(fd, name);
    closeOldest();
  }

  // The handle of level `i`, opened again from the nearest open level above when it was closed.
  int handle(size_t i) {
    if (levels_[i].fd >= 0) return levels_[i].fd;
    size_t first = i;
    while (first > 0 && levels_[first - 1].fd < 0) --first;
    for (size_t k = first; k <= i; ++k) {
      struct stat st{};
      st.st_dev = levels_[k].dev;
      st.st_ino = levels_[k].ino;
      levels_[k].fd = openChecked(k == 0 ? holder_ : levels_[k - 1].fd, levels_[k].name, st);
      closeOldest();
    }
    return levels_[i].fd;
  }

  void closeOldest() {
    size_t open = 0;
    for (const auto& level : levels_) open += level.fd >= 0;
    for (auto& level : levels_) {
      if (open <= kOpenLevels) break;
      if (level.fd < 0) continue;
      ::close(level.fd);
      level.fd = -1;
      --open;
    }
  }

  int holder_;
  std::vector<Level> levels_;
};

bool sameBytes(int a, int b, off_t size) {
  std::vector<char> left(1 << 16), right(1 << 16);
  for (off_t at = 0; at < size;) {
    const size_t want = static_cast<size_t>(std::min<off_t>(static_cast<off_t>(left.size()), size - at));
    const ssize_t x = ::pread(a, left.data(), want, at), y = ::pread(b, right.data(), want, at);
    if (x <= 0 || x != y || std::memcmp(left.data(), right.data(), static_cast<size_t>(x)) != 0) return false;
    at += x;
  }
  return true;
}

bool sameEntry(int keptDir, const std::string& keptName, const struct stat& kept, int dupDir,
               const std::string& name, const struct stat& dup) {
  // A folder's own mode is no data of the user's, and a removal may have opened it up.
  if ((kept.st_mode & S_IFMT) != (dup.st_mode & S_IFMT)) return false;
  if (!S_ISDIR(dup.st_mode) && (kept.st_mode & 07777) != (dup.st_mode & 07777)) return false;
  if (S_ISLNK(dup.st_mode)) {
    char a[4096], b[4096];
    const ssize_t x = ::readlinkat(keptDir, keptName.c_str(), a, sizeof a), y = ::readlinkat(dupDir, name.c_str(), b, sizeof b);
    return x >= 0 && x == y && std::memcmp(a, b, static_cast<size_t>(x)) == 0;
  }
  if (!S_ISREG(dup.st_mode)) return true;
  if (kept.st_size != dup.st_size) return false;
  Fd a(::openat(keptDir, keptName.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  Fd b(::openat(dupDir, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  return a.get() >= 0 && b.get() >= 0 && sameBytes(a.get(), b.get(), dup.st_size);
}

bool removeSameAs(int keptDir, const std::string& keptName, int dupDir, const std::string& name, dev_t dupDevice) {
  struct stat kept, dup;
  if (::fstatat(dupDir, name.c_str(), &dup, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
  if (::fstatat(keptDir, keptName.c_str(), &kept, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (isMountRoot(dupDir, name, dup, dupDevice) || !sameEntry(keptDir, keptName, kept, dupDir, name, dup)) return false;
  if (!S_ISDIR(dup.st_mode)) return unlinkOpeningParent(dupDir, name, 0) == 0;
  Fd keptFolder(openFolderAt(keptDir, keptName)), dupFolder(openFolderAt(dupDir, name));
  if (keptFolder.get() < 0 || dupFolder.get() < 0) return false;
  bool whole = true;
  for (const auto& child : listNames(dupFolder.get(), name))
    whole = removeSameAs(keptFolder.get(), child, dupFolder.get(), child, dup.st_dev) && whole;
  return whole && unlinkOpeningParent(dupDir, name, AT_REMOVEDIR) == 0;
}

}  // namespace

void removeTree(const DirHandle& dir, const std::string& name) { TreeRemoval(dir.fd()).run(name); }

bool removeSameAs(const DirHandle& kept, const std::string& keptName, const DirHandle& duplicate,
                  const std::string& duplicateName) {
  struct stat holder;
  if (::fstat(duplicate.fd(), &holder) != 0) return false;
  return removeSameAs(kept.fd(), keptName, duplicate.fd(), duplicateName, holder.st_dev);
}

std::string newPartialName() {
  static thread_local std::mt19937_64 generator{std::random_device{}()};
  return fmt::format(".vorlan-partial-{:016x}", generator());
}

void syncFolder(const DirHandle& dir) noexcept {
  try {
    flushDescriptor(dir.fd());
  } catch (const std::system_error&) {
  }
}

}  // namespace vorlan

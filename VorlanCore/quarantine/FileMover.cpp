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
#include <fmt/format.h>
#include <random>
#include <system_error>
#include <vector>

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
                     CopyState& state, bool& created, const dev_t* within = nullptr);

void copyFolderContents(int fromFolder, int toFolder, CopiedNode& node, CopyState& state,
                        const std::string& what) {
  for (const auto& child : listNames(fromFolder, what)) {
    bool childCreated = false;
    node.children.push_back(copyEntry(fromFolder, child, toFolder, child, state, childCreated, &node.st.st_dev));
  }
}

CopiedNode copyEntry(int fromDir, const std::string& name, int toDir, const std::string& toName,
                     CopyState& state, bool& created, const dev_t* within) {
  CopiedNode node;
  node.name = name;
  struct stat& st = node.st;
  if (::fstatat(fromDir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) throwError(errno, name);
  // Another file system mounted inside the item (a network share, a disk image) is not the
  // user's folder: copying it would have the move delete its files from that file system
  // afterwards. The whole move is refused and the source stays as it is.
  if (within && st.st_dev != *within) throwError(EXDEV, name + ": another file system is mounted here");
  const timespec times[2] = {accessed(st), modified(st)};

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
      copyFolderContents(in.get(), out.get(), node, state, name);
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
                      const FileFaults* faults, std::string_view label) {
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
  CopyState state{faults, 0};
  bool created = false;
  CopiedNode copied;
  try {
    copied = copyEntry(from.fd(), fromName, to.fd(), partialName, state, created);
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
  syncFolder(to);
  checkpoint(faults, "copied", label);
  if (int placed = renameNoReplace(to.fd(), partialName, to.fd(), toName); placed != 0) {
    try {
      removeTree(to, partialName);
    } catch (const std::system_error&) {
    }
    throwError(placed, toName);
  }
  syncFolder(to);
  checkpoint(faults, "placed", label);
  bool whole = removeCopied(from.fd(), copied);
  syncFolder(from);
  return whole ? MoveOutcome::copied : MoveOutcome::copiedSourceLeft;
}

namespace {

void removeTreeOn(const DirHandle& dir, dev_t device, const std::string& name) {
  struct stat st;
  if (::fstatat(dir.fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return;
    throwError(errno, name);
  }
  if (S_ISDIR(st.st_mode)) {
    // A folder on another device is a mount point that rode along with a moved folder: what
    // is mounted there belongs to another file system and is never deleted from here.
    if (st.st_dev != device) throwError(EXDEV, name + ": another file system is mounted here");
    int fd = openFolderAt(dir.fd(), name);
    if (fd < 0 && errno == EACCES) {
      // Unreadable: it was a folder a moment ago, and it lies in a folder of ours; giving its
      // owner the permissions back is what lets it be emptied.
      if (::fchmodat(dir.fd(), name.c_str(), (st.st_mode & 07777) | S_IRWXU, 0) != 0) throwError(errno, name);
      fd = openFolderAt(dir.fd(), name);
    }
    if (fd < 0) throwError(errno, name);
    DirHandle folder(fd);
    if ((st.st_mode & S_IRWXU) != S_IRWXU && ::fchmod(fd, (st.st_mode & 07777) | S_IRWXU) != 0)
      throwError(errno, name);
    for (const auto& child : listNames(fd, name)) removeTreeOn(folder, device, child);
    if (int error = unlinkOpeningParent(dir.fd(), name, AT_REMOVEDIR)) throwError(error, name);
    return;
  }
  if (int error = unlinkOpeningParent(dir.fd(), name, 0); error != 0 && error != ENOENT) throwError(error, name);
}

}  // namespace

void removeTree(const DirHandle& dir, const std::string& name) {
  struct stat holder;
  if (::fstat(dir.fd(), &holder) != 0) throwError(errno, name);
  removeTreeOn(dir, holder.st_dev, name);
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

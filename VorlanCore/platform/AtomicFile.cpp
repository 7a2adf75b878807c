#include "platform/AtomicFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fmt/format.h>
#include <random>
#include <string>
#include <system_error>

namespace vorlan {
namespace {

[[noreturn]] void throwErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void flushDescriptor(int fd) {
#ifdef F_FULLFSYNC
  if (::fcntl(fd, F_FULLFSYNC) == 0) return;
#endif
  if (::fsync(fd) != 0) throwErrno("fsync");
}

}  // namespace

void syncPath(const std::filesystem::path& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throwErrno(path.string());
  try {
    flushDescriptor(fd);
  } catch (...) {
    ::close(fd);
    throw;
  }
  ::close(fd);
}

void writeFileAtomicallyAt(int dirfd, const std::string& name, std::string_view bytes) {
  static thread_local std::mt19937_64 generator{std::random_device{}()};
  std::string tmp;
  int fd = -1;
  for (int attempt = 0; fd < 0 && attempt < 100; ++attempt) {
    tmp = fmt::format(".{}.tmp-{:012x}", name, generator() & 0xffffffffffffULL);
    fd = ::openat(dirfd, tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0 && errno != EEXIST) throwErrno(name);
  }
  if (fd < 0) throwErrno(name);
  auto fail = [&]() {
    int saved = errno;
    ::close(fd);
    ::unlinkat(dirfd, tmp.c_str(), 0);
    errno = saved;
    throwErrno(name);
  };
  for (size_t done = 0; done < bytes.size();) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail();
    done += static_cast<size_t>(n);
  }
  if (::fchmod(fd, 0644) != 0) fail();
  try {
    flushDescriptor(fd);
  } catch (const std::system_error&) {
    fail();
  }
  if (::close(fd) != 0 || ::renameat(dirfd, tmp.c_str(), dirfd, name.c_str()) != 0) {
    int saved = errno;
    ::unlinkat(dirfd, tmp.c_str(), 0);
    errno = saved;
    throwErrno(name);
  }
  flushDescriptor(dirfd);
}

void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes) {
  const auto folder = target.has_parent_path() ? target.parent_path() : std::filesystem::path(".");
  // Appended piece by piece: GCC 12 takes `"." + name + …` for an overlapping copy (-Wrestrict).
  std::string name = ".";
  name.append(target.filename().string()).append(".tmp-XXXXXX");
  std::string tmpl = (folder / name).string();
  int fd = ::mkstemp(tmpl.data());
  if (fd < 0) throwErrno(target.string());
  const std::filesystem::path tmp = tmpl;
  auto fail = [&](const std::string& what) {
    int saved = errno;
    ::close(fd);
    ::unlink(tmp.c_str());
    errno = saved;
    throwErrno(what);
  };
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      fail(target.string());
    }
    done += static_cast<size_t>(n);
  }
  // mkstemp makes the file 0600; a saved report or manifest is an ordinary file.
  if (::fchmod(fd, 0644) != 0) fail(target.string());
  try {
    flushDescriptor(fd);
  } catch (const std::system_error&) {
    fail(target.string());
  }
  if (::close(fd) != 0) {
    int saved = errno;
    ::unlink(tmp.c_str());
    errno = saved;
    throwErrno(target.string());
  }
  if (::rename(tmp.c_str(), target.c_str()) != 0) {
    int saved = errno;
    ::unlink(tmp.c_str());
    errno = saved;
    throwErrno(target.string());
  }
  syncPath(folder);
}

}  // namespace vorlan

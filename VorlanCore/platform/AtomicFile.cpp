#include "platform/AtomicFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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

void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes) {
  const auto folder = target.has_parent_path() ? target.parent_path() : std::filesystem::path(".");
  std::string tmpl = (folder / ("." + target.filename().string() + ".tmp-XXXXXX")).string();
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

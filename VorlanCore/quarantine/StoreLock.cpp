#include "quarantine/StoreLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include "platform/FileReading.hpp"
#include "quarantine/QuarantineRecords.hpp"

namespace vorlan {

StoreLock::~StoreLock() {
  if (fd_ >= 0) ::close(fd_);
}

StoreLock& StoreLock::operator=(StoreLock&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

StoreLock StoreLock::acquire(const DirHandle& folder, int waitMilliseconds) {
  const std::string name(fileName);
  int fd = openRegularFileAt(folder.fd(), name, O_RDWR | O_CREAT, 0600);
  if (fd < 0 && (errno == EINVAL || errno == ELOOP || errno == ENXIO)) {
    // A pipe, socket or link under the lock's name is nothing this program made: it goes, and
    // a plain file takes its place.
    ::unlinkat(folder.fd(), name.c_str(), 0);
    fd = openRegularFileAt(folder.fd(), name, O_RDWR | O_CREAT | O_EXCL, 0600);
  }
  if (fd < 0) throw std::system_error(errno, std::generic_category(), name);
  StoreLock lock(fd);
  // Polled rather than blocking, so that the wait has an end.
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMilliseconds);
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) throw std::system_error(errno, std::generic_category(), name);
    if (std::chrono::steady_clock::now() >= giveUp) throw QuarantineError(QuarantineErrorKind::storeBusy, name);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return lock;
}

}  // namespace vorlan

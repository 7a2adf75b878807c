#include "platform/FileReading.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace vorlan {

int openRegularFileAt(int dirfd, const std::string& name, int flags, unsigned mode) {
  // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer forever.
  int fd = ::openat(dirfd, name.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, static_cast<mode_t>(mode));
  if (fd < 0) return -1;
  struct stat st{};
  const int error = ::fstat(fd, &st) != 0 ? errno : S_ISREG(st.st_mode) ? 0 : EINVAL;
  if (error != 0) {
    ::close(fd);
    errno = error;
    return -1;
  }
  // Reads of a regular file never wait; clearing the flag keeps writes plain.
  (void)::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

std::optional<std::string> readRegularFileAt(int dirfd, const std::string& name, int64_t maxBytes) {
  int fd = openRegularFileAt(dirfd, name, O_RDONLY);
  if (fd < 0) return std::nullopt;
  struct stat st{};
  if (::fstat(fd, &st) != 0 || st.st_size > maxBytes) {
    ::close(fd);
    return std::nullopt;
  }
  std::string data;
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    // A file that grows past the limit while it is read is refused like one that was too big.
    if (n < 0 || static_cast<int64_t>(data.size()) + n > maxBytes) {
      ::close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    data.append(buffer, static_cast<size_t>(n));
  }
  ::close(fd);
  return data;
}

std::optional<std::string> readRegularFile(const std::filesystem::path& path, int64_t maxBytes) {
  return readRegularFileAt(AT_FDCWD, path.string(), maxBytes);
}

}  // namespace vorlan

#include "platform/FileReading.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace vorlan {

std::optional<std::string> readRegularFile(const std::filesystem::path& path, int64_t maxBytes) {
  int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  struct stat st{};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > maxBytes) {
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

}  // namespace vorlan

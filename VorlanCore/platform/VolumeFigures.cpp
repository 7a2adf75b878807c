#include "platform/VolumeFigures.hpp"

#include <sys/statvfs.h>

#include <limits>

namespace vorlan {
namespace {

int64_t bytesOf(unsigned long blockSize, unsigned long long blocks) {
  int64_t bytes = 0;
  if (__builtin_mul_overflow(static_cast<unsigned long long>(blockSize), blocks, &bytes))
    return std::numeric_limits<int64_t>::max();
  return bytes;
}

}  // namespace

DiskUsage diskUsage(const std::filesystem::path& path) {
  struct statvfs figures {};
  if (::statvfs(path.c_str(), &figures) != 0) return {};
  return DiskUsage{bytesOf(figures.f_frsize, figures.f_blocks), bytesOf(figures.f_frsize, figures.f_bfree)};
}

std::optional<int64_t> settingsUsedBytes(const std::filesystem::path& path) {
  struct statvfs figures {};
  if (::statvfs(path.c_str(), &figures) != 0) return std::nullopt;
#ifdef __APPLE__
  const auto unused = figures.f_bavail;
#else
  const auto unused = figures.f_bfree;
#endif
  int64_t used = bytesOf(figures.f_frsize, figures.f_blocks) - bytesOf(figures.f_frsize, unused);
  return used < 0 ? 0 : used;
}

}  // namespace vorlan

#include "platform/FullDiskAccess.hpp"

#include <system_error>

namespace vorlan::FullDiskAccess {

std::filesystem::path probeFolder(const std::filesystem::path& home) {
#ifdef __APPLE__
  return home / "Library/Application Support/com.apple.TCC";
#else
  return home;
#endif
}

bool granted(const std::filesystem::path& home) {
  std::error_code ec;
  std::filesystem::directory_iterator listing(probeFolder(home), ec);
  return !ec;
}

}  // namespace vorlan::FullDiskAccess

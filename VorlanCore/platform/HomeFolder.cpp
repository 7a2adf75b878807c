#include "platform/HomeFolder.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

namespace vorlan {

std::filesystem::path currentHome() {
  std::filesystem::path home;
  if (const char* h = std::getenv("HOME"); h && *h)
    home = h;
  else if (passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir)
    home = pw->pw_dir;
  if (home.empty()) return home;
  std::error_code ec;
  auto resolved = std::filesystem::canonical(home, ec);
  return ec ? home : resolved;
}

}  // namespace vorlan

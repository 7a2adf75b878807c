#include "cleanup/AppOwnership.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstdint>
#include <memory>
#include <optional>

#include "platform/FileReading.hpp"
#include "platform/PropertyList.hpp"

#ifdef __APPLE__
#include <libproc.h>
#endif

namespace vorlan {

namespace {

constexpr std::array<std::string_view, 2> stripSegments{"group", "groups"};

bool isIdentifierChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
}

bool isTeamIdentifier(std::string_view segment) {
  return segment.size() == 10 && std::all_of(segment.begin(), segment.end(), [](char c) {
           return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
         });
}

// "com.foo.bar" -> "com.foo"; a text without a dot stays whole.
std::string_view vendorPrefix(std::string_view identifier) {
  size_t first = identifier.find('.');
  if (first == std::string_view::npos) return identifier;
  size_t second = identifier.find('.', first + 1);
  return second == std::string_view::npos ? identifier : identifier.substr(0, second);
}


}  // namespace

std::vector<std::filesystem::path> defaultAppDirs(const std::filesystem::path& home) {
  return {"/Applications", "/Applications/Utilities", "/System/Applications",
          "/System/Applications/Utilities", home / "Applications"};
}

bool isReverseDNS(std::string_view name) {
  size_t i = 0;
  for (int run = 0; run < 2; ++run) {
    size_t start = i;
    while (i < name.size() && isIdentifierChar(name[i])) ++i;
    if (i == start || i >= name.size() || name[i] != '.') return false;
    ++i;
  }
  return true;
}

std::vector<std::string> candidateIdentities(std::string_view name) {
  std::vector<std::string> result{std::string(name)};
  std::string_view current = name;
  for (int round = 0; round < 3; ++round) {
    size_t dot = current.find('.');
    if (dot == std::string_view::npos) break;
    std::string_view first = current.substr(0, dot);
    std::string_view rest = current.substr(dot + 1);
    // What is left must still look like an identifier of its own.
    if (rest.find('.') == std::string_view::npos) break;
    bool strip = std::find(stripSegments.begin(), stripSegments.end(), first) !=
                     stripSegments.end() ||
                 isTeamIdentifier(first);
    if (!strip) break;
    result.emplace_back(rest);
    current = rest;
  }
  return result;
}

bool isFirstParty(std::string_view name) {
  for (const auto& candidate : candidateIdentities(name))
    if (candidate.starts_with("com.apple.")) return true;
  return false;
}

bool isRelatedToInstalledApp(std::string_view name, const std::set<std::string>& installed) {
  if (std::count(name.begin(), name.end(), '.') < 2) return false;
  std::set<std::string_view> vendors;
  for (const auto& identifier : installed) vendors.insert(vendorPrefix(identifier));
  for (const auto& candidate : candidateIdentities(name))
    if (vendors.contains(vendorPrefix(candidate))) return true;
  return false;
}

bool isOwnedByInstalledApp(std::string_view name, const std::set<std::string>& installed) {
  for (const auto& candidate : candidateIdentities(name)) {
    if (installed.contains(candidate)) return true;
    for (const auto& identifier : installed) {
      if (candidate.size() > identifier.size() && candidate.starts_with(identifier) &&
          candidate[identifier.size()] == '.')
        return true;
    }
  }
  return false;
}

bool isCurrentlyRunning(std::string_view name, const std::set<std::string>& running) {
  if (!isReverseDNS(name)) return false;
  for (const auto& candidate : candidateIdentities(name))
    if (running.contains(candidate)) return true;
  return false;
}

std::string bundleIdentifierOfInfoPlist(const std::filesystem::path& infoPlist) {
  const auto data = readRegularFile(infoPlist);
  if (!data) return {};
  const PlistTree root = parsePropertyList(*data);
  return plistString(root.get(), "CFBundleIdentifier").value_or("");
}

std::set<std::string> installedBundleIDs(const std::vector<std::filesystem::path>& appDirs) {
  std::set<std::string> identifiers;
  for (const auto& dir : appDirs) {
    DIR* listing = ::opendir(dir.c_str());
    if (!listing) continue;  // an unreadable folder hides only its own applications
    while (dirent* child = ::readdir(listing)) {
      std::string_view name = child->d_name;
      if (name.size() <= 4 || !name.ends_with(".app")) continue;
      std::string identifier = bundleIdentifierOfInfoPlist(dir / name / "Contents" / "Info.plist");
      if (!identifier.empty()) identifiers.insert(std::move(identifier));
    }
    ::closedir(listing);
  }
  return identifiers;
}

#ifdef __APPLE__

std::set<std::string> runningBundleIDs() {
  std::set<std::string> identifiers;
  int bytes = proc_listpids(PROC_UID_ONLY, ::getuid(), nullptr, 0);
  if (bytes <= 0) return identifiers;
  std::vector<pid_t> pids(static_cast<size_t>(bytes) / sizeof(pid_t) + 64);
  bytes = proc_listpids(PROC_UID_ONLY, ::getuid(), pids.data(),
                        static_cast<int>(pids.size() * sizeof(pid_t)));
  if (bytes <= 0) return identifiers;
  pids.resize(static_cast<size_t>(bytes) / sizeof(pid_t));
  char pathBuffer[PROC_PIDPATHINFO_MAXSIZE];
  for (pid_t pid : pids) {
    if (pid <= 0 || proc_pidpath(pid, pathBuffer, sizeof pathBuffer) <= 0) continue;
    // An application's executable sits in Name.app/Contents/MacOS/; its bundle names it.
    std::string_view path = pathBuffer;
    size_t marker = path.rfind(".app/Contents/MacOS/");
    if (marker == std::string_view::npos) continue;
    std::filesystem::path bundle(std::string(path.substr(0, marker + 4)));
    std::string identifier = bundleIdentifierOfInfoPlist(bundle / "Contents" / "Info.plist");
    if (!identifier.empty()) identifiers.insert(std::move(identifier));
  }
  return identifiers;
}

#else

std::set<std::string> runningBundleIDs() {
  std::set<std::string> names;
  DIR* proc = ::opendir("/proc");
  if (!proc) return names;
  const uid_t self = ::getuid();
  while (dirent* entry = ::readdir(proc)) {
    std::string_view pid = entry->d_name;
    if (pid.empty() || !std::all_of(pid.begin(), pid.end(), [](char c) { return c >= '0' && c <= '9'; }))
      continue;
    std::string base = "/proc/" + std::string(pid);
    struct stat st{};
    if (::stat(base.c_str(), &st) != 0 || st.st_uid != self) continue;
    char target[PATH_MAX];
    ssize_t n = ::readlink((base + "/exe").c_str(), target, sizeof target - 1);
    if (n <= 0) continue;  // kernel threads and processes that vanished meanwhile
    std::string_view exe(target, static_cast<size_t>(n));
    if (exe.ends_with(" (deleted)")) exe.remove_suffix(10);
    size_t slash = exe.rfind('/');
    std::string_view name = slash == std::string_view::npos ? exe : exe.substr(slash + 1);
    if (!name.empty()) names.emplace(name);
  }
  ::closedir(proc);
  return names;
}

#endif

}  // namespace vorlan

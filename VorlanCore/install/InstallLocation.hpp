// Where the running app stands and whether to offer the move into the applications folder;
// the marker that carries a move's unfinished business across the relaunch. Pure decisions
// over paths, environment and bytes, apart from the marker's file.
#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "network/Environment.hpp"

namespace vorlan {

namespace InstallLocation {

inline constexpr std::string_view appName = "Vorlan.app";
inline constexpr std::string_view skipEnvKey = "VORLAN_SKIP_MOVE";

struct DiskImageMount {
  std::string imagePath;   // the image file, as hdiutil names it
  std::string mountPoint;  // where a volume of it is mounted
  bool operator==(const DiskImageMount&) const = default;
};

// The bundle's folder is exactly "/Applications" or home + "/Applications".
bool isInstalled(std::string_view bundlePath, std::string_view home);

// Not when VORLAN_SKIP_MOVE is "1", the path is no ".app" bundle, it is a development build
// (under "/.build/"), or it is installed already.
bool shouldOfferMove(std::string_view bundlePath, std::string_view home, const Environment& env);

// The image whose mounted volume holds `bundlePath`, the deepest mount point winning; nothing
// for output that does not read as `hdiutil info -plist`.
std::optional<DiskImageMount> diskImageMount(std::string_view bundlePath,
                                             std::string_view hdiutilInfoPlist);

}  // namespace InstallLocation

// What the new copy finishes after the old one moved it: eject, offer the image to the trash,
// let the old process go.
struct InstallCleanup {
  std::optional<std::string> mountPoint;
  std::optional<std::string> imagePath;
  std::optional<int32_t> previousPID;
  bool operator==(const InstallCleanup&) const = default;

  // home/.vorlan/install-cleanup.json
  static std::filesystem::path markerPath(const std::filesystem::path& home);
  // Writes the marker durably, creating its folder. Throws std::system_error or
  // std::filesystem::filesystem_error.
  void save(const std::filesystem::path& home) const;
  // Reads and removes the marker: it is used once at most, and goes before it is looked at.
  // Nothing when there is none or it does not decode.
  static std::optional<InstallCleanup> consume(const std::filesystem::path& home);

  std::string encode() const;
  static std::optional<InstallCleanup> decode(std::string_view json);
};

}  // namespace vorlan

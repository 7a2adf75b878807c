// Whether a folder's name is an application identifier, which identifiers it may stand for,
// and how it relates to the applications installed and running now.
#pragma once
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace vorlan {

// The application folders, in the order they are read: the system's, then the user's own.
std::vector<std::filesystem::path> defaultAppDirs(const std::filesystem::path& home);

// Starts with two dot-terminated runs of letters, digits and "-": "com.foo.bar", "com.foo.".
bool isReverseDNS(std::string_view name);

// The name itself first, then what remains after each "group"/"groups" or team-identifier
// prefix is peeled off (at most three rounds).
std::vector<std::string> candidateIdentities(std::string_view name);

bool isFirstParty(std::string_view name);

// Loose, vendor-level test: some installed application shares the first two segments.
bool isRelatedToInstalledApp(std::string_view name, const std::set<std::string>& installed);

// Strict test: a candidate is an installed identifier or lies below one at a "." border.
bool isOwnedByInstalledApp(std::string_view name, const std::set<std::string>& installed);

// Only identifier-shaped names can be in use, and only by exact equality of a candidate.
bool isCurrentlyRunning(std::string_view name, const std::set<std::string>& running);

// Identifiers of the "*.app" bundles directly inside the folders that can be read.
std::set<std::string> installedBundleIDs(const std::vector<std::filesystem::path>& appDirs);

// The identifier in a bundle's Info.plist (XML or binary), or empty when there is none.
std::string bundleIdentifierOfInfoPlist(const std::filesystem::path& infoPlist);

// What runs now for the current user. On macOS the bundle identifiers of running applications;
// on Linux, which has no bundles, the base names of the current user's executables.
std::set<std::string> runningBundleIDs();

}  // namespace vorlan

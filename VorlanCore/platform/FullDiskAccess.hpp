// Whether the program may read the user's protected folders. On macOS that is a permission
// the user grants in the system settings; elsewhere, being able to list the home folder is
// the same promise.
#pragma once
#include <filesystem>

namespace vorlan::FullDiskAccess {

// The folder whose listing answers the question: a folder only that permission opens on
// macOS, the home folder itself elsewhere.
std::filesystem::path probeFolder(const std::filesystem::path& home);

// Lists the probe folder afresh on every call, with no side effect: only an error counts,
// so an empty folder that lists is access granted.
bool granted(const std::filesystem::path& home);

}  // namespace vorlan::FullDiskAccess

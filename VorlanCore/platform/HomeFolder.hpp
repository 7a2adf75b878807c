// The current user's home folder, as both the command line and the app use it.
#pragma once
#include <filesystem>

namespace vorlan {

// HOME when set and not empty, else the account's folder from the user database, with links
// and ".." resolved so that every check of a path against it looks where the kernel will.
// Left as it is when it cannot be resolved; empty when neither source names one.
std::filesystem::path currentHome();

}  // namespace vorlan

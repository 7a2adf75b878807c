// The home folder every path of the program is relative to, taken from HOME and nowhere else:
// a program that moves folders must not guess another home when HOME is unusable.
#pragma once
#include <filesystem>
#include <string>

namespace vorlan {

struct HomeFolder {
  std::filesystem::path path;  // links and ".." resolved; empty when refused
  std::string problem;         // one Korean line when refused
};

// Refuses an unset or empty HOME, one that is not an existing folder, and the root folder.
HomeFolder homeFolderFrom(const char* value);

}  // namespace vorlan

// Walks folders with lstat to learn what they really occupy on disk, when their files last
// changed and how many files they hold. Symbolic links are never followed.
#pragma once
#include <cstdint>
#include <filesystem>
#include <map>
#include <stop_token>
#include <string>
#include <vector>

namespace vorlan {

struct UsageStat {
  int64_t bytes = 0;             // allocated: st_blocks × 512, never the apparent size
  int64_t lastChangedEpoch = 0;  // newest mtime of a regular file below; 0 when there is none
  int64_t fileCount = 0;         // regular files below
  bool operator==(const UsageStat&) const = default;
};

// Everything below `folder`, not counting the folder's own blocks. What cannot be read adds
// nothing. Every name of a hard-linked file counts. Throws Cancelled only when
// `stop` is requested.
UsageStat walkTree(const std::filesystem::path& folder, std::stop_token stop = {});

// The child folders of `folder` by name (files and symlinks directly inside have no entry);
// `listed` is false when `folder` itself could not be listed.
struct ChildFolders {
  bool listed = false;
  bool missing = false;  // the folder does not exist at all
  std::vector<std::string> names;  // in listing order
};
ChildFolders childFolders(const std::filesystem::path& folder);

// Each child folder measured by walkTree; an empty map when `folder` cannot be listed.
std::map<std::string, UsageStat> measureChildren(const std::filesystem::path& folder);

// Allocated bytes of a file, link or folder, the folder's own blocks included; 0 when it is
// gone.
int64_t measureItem(const std::filesystem::path& path);

}  // namespace vorlan

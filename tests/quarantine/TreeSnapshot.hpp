// A folder tree captured as data (bytes, link targets, modes, file times, names of one file), so that a test can
// prove that a round trip changed nothing and that no file went missing.
#pragma once
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/TestSupport.hpp"

namespace vorlan::test {

struct TreeEntry {
  char kind = '?';      // 'f' file, 'd' folder, 'l' link, 'o' anything else
  std::string data;     // a file's bytes or a link's target
  unsigned mode = 0;
  int64_t mtimeNs = 0;  // files and links only: a folder's time moves with its entries
  int64_t links = 0;    // files only: names of the file
  bool operator==(const TreeEntry&) const = default;
};

using Tree = std::map<std::string, TreeEntry>;

// Every entry below `root`, links not followed. `skip` holds relative paths left out with
// everything below them.
inline Tree snapshotTree(const std::filesystem::path& root, const std::set<std::string>& skip = {}) {
  namespace fs = std::filesystem;
  Tree tree;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied, ec), end;
       !ec && it != end; it.increment(ec)) {
    const std::string rel = it->path().lexically_relative(root).string();
    struct stat st;
    if (skip.contains(rel)) it.disable_recursion_pending();
    if (skip.contains(rel) || ::lstat(it->path().c_str(), &st) != 0) continue;
#if defined(__APPLE__)
    const timespec& mtime = st.st_mtimespec;
#else
    const timespec& mtime = st.st_mtim;
#endif
    TreeEntry& entry = tree[rel];
    entry.mode = st.st_mode & 07777;
    entry.kind = S_ISDIR(st.st_mode) ? 'd' : S_ISLNK(st.st_mode) ? 'l' : S_ISREG(st.st_mode) ? 'f' : 'o';
    if (entry.kind != 'd') entry.mtimeNs = int64_t(mtime.tv_sec) * 1'000'000'000 + mtime.tv_nsec;
    if (entry.kind == 'l') entry.data = fs::read_symlink(it->path()).string();
    if (entry.kind == 'f') entry.data = readFile(it->path()), entry.links = static_cast<int64_t>(st.st_nlink);
  }
  return tree;
}

// The entries below `relative` in `tree`, with paths made relative to it.
inline Tree subtree(const Tree& tree, const std::string& relative) {
  Tree result;
  for (const auto& [path, entry] : tree)
    if (path.starts_with(relative + "/")) result[path.substr(relative.size() + 1)] = entry;
  return result;
}

// The paths whose entries differ, for a readable failure message.
inline std::string treeDifference(const Tree& expected, const Tree& actual) {
  std::string out;
  for (const auto& [path, entry] : expected)
    if (!actual.contains(path)) out += "missing: " + path + "\n";
    else if (!(actual.at(path) == entry)) out += "changed: " + path + "\n";
  for (const auto& [path, entry] : actual)
    if (!expected.contains(path)) out += "new: " + path + "\n";
  return out;
}

// The files and links of `before` (taken of the home folder) that are, byte for byte, neither
// still at home nor at the same relative path in one of `batches`.
inline std::string lostFiles(const Tree& before, const std::filesystem::path& home,
                             const std::vector<std::filesystem::path>& batches) {
  std::vector<Tree> places{snapshotTree(home)};
  for (const auto& batch : batches) places.push_back(snapshotTree(batch));
  std::string lost;
  for (const auto& [path, entry] : before) {
    bool found = entry.kind == 'd';
    for (const auto& place : places) found = found || (place.contains(path) && place.at(path) == entry);
    if (!found) lost += path + "\n";
  }
  return lost;
}

}  // namespace vorlan::test

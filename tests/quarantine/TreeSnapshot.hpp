// A folder tree captured as data (contents, link targets, modes, file times), so that a test can
// prove that a round trip changed nothing and that no file went missing.
#pragma once
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "support/TestSupport.hpp"

namespace vorlan::test {

struct TreeEntry {
  char kind = '?';   // 'f' file, 'd' folder, 'l' link, 'o' anything else
  std::string data;  // a file's bytes or a link's target
  unsigned mode = 0;
  // Files and links only: a folder's own time changes whenever an entry comes or goes.
  int64_t mtimeNs = 0;
  bool operator==(const TreeEntry&) const = default;
};

using Tree = std::map<std::string, TreeEntry>;

// Small files by their bytes; larger ones by length and a 64-bit FNV-1a of their bytes, so
// that big trees compare without holding every file in memory.
inline std::string fileFingerprint(const std::filesystem::path& file) {
  FILE* in = std::fopen(file.c_str(), "rb");
  if (!in) return "<unreadable>";
  std::string head;
  uint64_t hash = 1469598103934665603ull;
  uint64_t length = 0;
  char buffer[65536];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, in)) > 0;) {
    if (head.size() < 4096) head.append(buffer, std::min(n, 4096 - head.size()));
    for (size_t i = 0; i < n; ++i) hash = (hash ^ static_cast<unsigned char>(buffer[i])) * 1099511628211ull;
    length += n;
  }
  std::fclose(in);
  if (length <= 4096) return head;
  return "<" + std::to_string(length) + " bytes, fnv " + std::to_string(hash) + ">";
}

inline void snapshotInto(const std::filesystem::path& folder, const std::string& prefix, Tree& tree,
                         const std::set<std::string>& skip) {
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return;
  while (dirent* e = ::readdir(dir)) {
    std::string name = e->d_name;
    if (name == "." || name == "..") continue;
    std::string rel = prefix.empty() ? name : prefix + "/" + name;
    if (skip.contains(rel)) continue;
    auto full = folder / name;
    struct stat st;
    if (::lstat(full.c_str(), &st) != 0) continue;
    TreeEntry entry;
    entry.mode = st.st_mode & 07777;
#if defined(__APPLE__)
    entry.mtimeNs = int64_t(st.st_mtimespec.tv_sec) * 1'000'000'000 + st.st_mtimespec.tv_nsec;
#else
    entry.mtimeNs = int64_t(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec;
#endif
    if (S_ISDIR(st.st_mode)) {
      entry.kind = 'd';
      entry.mtimeNs = 0;
      tree[rel] = entry;
      snapshotInto(full, rel, tree, skip);
    } else if (S_ISLNK(st.st_mode)) {
      entry.kind = 'l';
      entry.data = std::filesystem::read_symlink(full).string();
      tree[rel] = entry;
    } else if (S_ISREG(st.st_mode)) {
      entry.kind = 'f';
      entry.data = fileFingerprint(full);
      tree[rel] = std::move(entry);
    } else {
      entry.kind = 'o';
      tree[rel] = entry;
    }
  }
  ::closedir(dir);
}

// Every entry below `root`, links not followed. `skip` holds relative paths left out with
// everything below them.
inline Tree snapshotTree(const std::filesystem::path& root, const std::set<std::string>& skip = {}) {
  Tree tree;
  snapshotInto(root, "", tree, skip);
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
  for (const auto& [path, entry] : expected) {
    auto it = actual.find(path);
    if (it == actual.end())
      out += "missing: " + path + "\n";
    else if (!(it->second == entry))
      out += "changed: " + path + "\n";
  }
  for (const auto& [path, entry] : actual)
    if (!expected.contains(path)) out += "new: " + path + "\n";
  return out;
}

// Each file and link of `before` (taken of the home folder) is, byte for byte, either still at
// home or at the same relative path in one of `batches`. Returns the paths that are neither.
inline std::string lostFiles(const Tree& before, const std::filesystem::path& home,
                             const std::vector<std::filesystem::path>& batches) {
  Tree now = snapshotTree(home);
  std::vector<Tree> stored;
  for (const auto& b : batches) stored.push_back(snapshotTree(b));
  std::string lost;
  for (const auto& [path, entry] : before) {
    if (entry.kind == 'd') continue;
    bool found = false;
    auto here = now.find(path);
    if (here != now.end() && here->second == entry) found = true;
    for (const auto& tree : stored) {
      auto there = tree.find(path);
      if (there != tree.end() && there->second == entry) found = true;
    }
    if (!found) lost += path + "\n";
  }
  return lost;
}

}  // namespace vorlan::test

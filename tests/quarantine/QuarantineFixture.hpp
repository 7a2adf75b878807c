// A temporary home with a folder beside it and the quarantine in its usual place, plus the
// helpers the quarantine tests share.
#pragma once
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/mount.h>
#endif

#include <cerrno>
#include <functional>
#include <memory>
#include <string>

#include "quarantine/Quarantine.hpp"
#include "quarantine/TreeSnapshot.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::test {

namespace fs = std::filesystem;
constexpr int64_t kNow = 1773479702;  // 2026-03-14T091502

// "kind: value" of the refusal a call ends in; empty when it ends well.
template <typename F>
std::string refused(F&& call) {
  try { call(); } catch (const QuarantineError& e) { return std::string(rawValue(e.kind())) + ": " + e.value(); }
  return "";
}

// Temporary copies below `folder`: none may outlive an operation.
inline std::string partialCopies(const fs::path& folder) {
  std::string found;
  for (const auto& [path, entry] : snapshotTree(folder))
    if (fs::path(path).filename().string().starts_with(".vorlan-partial-")) found += path + "\n";
  return found;
}

inline int crossDevice(std::string_view, std::string_view) { return EXDEV; }

// Runs `body` in a child process: the signal that ended it, 0 when it returned, -1 when it threw.
inline int signalOfChild(const std::function<void()>& body) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    try { body(); } catch (...) { ::_exit(1); }
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : -1;
}

// Mounts made by a test, taken down again whatever happens.
struct Mounts {
  std::vector<fs::path> points;
  ~Mounts() {
#if defined(__linux__)
    for (auto it = points.rbegin(); it != points.rend(); ++it) ::umount2(it->c_str(), MNT_DETACH);
#endif
  }
  // A bind mount of `from` at `at`, or a tmpfs when `from` is empty. False when this process
  // may not mount (not root, or no mount namespace of its own).
  bool mount(const fs::path& from, const fs::path& at) {
    fs::create_directories(at);
#if defined(__linux__)
    const int made = from.empty() ? ::mount("tmpfs", at.c_str(), "tmpfs", 0, "size=96m")
                                  : ::mount(from.c_str(), at.c_str(), nullptr, MS_BIND, nullptr);
    if (made == 0) points.push_back(at);
    return made == 0;
#else
    (void)from;
    return false;
#endif
  }
};

class QuarantineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(home / "Docs/a/one.txt", "first");
    writeFile(home / "Docs/a/deep/two.bin", std::string(3000, '\x02'));
    for (char n : {'0', '1', '2'}) writeFile(home / "Docs/b" / std::string{'p', n}, std::string(400'000, n));
    writeFile(home / "Docs/c", "third");
    writeFile(home / "Docs/sub/d/four", "fourth");
    writeFile(home / "Library/Caches/app/blob", std::string(70'000, 'b'));
    writeFile(outside / "keep.txt", "outside");
    fs::create_directories(home / "Docs/empty");
    fs::create_symlink(outside, home / "outlink");
    fs::create_symlink(home / "Docs", home / "in");
  }

  Tree homeTree() const { return snapshotTree(home, {".vorlan"}); }
  std::string lost(const Tree& before, const fs::path& batch) const { return lostFiles(before, home, {batch}); }
  Quarantine faulty(FileFaults f) const { return {quarantine.root, home, std::make_shared<FileFaults>(std::move(f))}; }
  // The one folder under the root, as a move under way has made it.
  fs::path onlyFolder() const { auto n = quarantine.batches(); return n.size() == 1 ? quarantine.root / n[0] : fs::path(); }

  TempDir dir;
  fs::path home = dir / "home", outside = dir / "outside";
  Quarantine quarantine{Quarantine::defaultRoot(home), home};
};

}  // namespace vorlan::test

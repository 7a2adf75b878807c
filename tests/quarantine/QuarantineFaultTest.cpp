// Faults while moving into the quarantine, each proving that no file is lost: every original
// file is afterwards either in place or in the batch, byte for byte.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/mount.h>
#endif

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <optional>

#include "quarantine/MoveJournal.hpp"
#include "quarantine/Quarantine.hpp"
#include "quarantine/TreeSnapshot.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using test::lostFiles;
using test::readFile;
using test::snapshotTree;
using test::TempDir;
using test::treeDifference;
using test::writeFile;

constexpr int64_t kNow = 1773479702;

// A small file system of its own, mounted for the test where the system lets it (as root on
// Linux), and unmounted when the object goes.
class SmallFileSystem {
 public:
  SmallFileSystem(const fs::path& at, const std::string& size) : path_(at) {
#if defined(__linux__)
    fs::create_directories(at);
    mounted_ = ::mount("tmpfs", at.c_str(), "tmpfs", 0, ("size=" + size + ",mode=0700").c_str()) == 0;
#else
    (void)size;
#endif
  }
  ~SmallFileSystem() {
#if defined(__linux__)
    if (mounted_) ::umount2(path_.c_str(), MNT_DETACH);
#endif
  }
  bool mounted() const { return mounted_; }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
  bool mounted_ = false;
};

dev_t deviceOf(const fs::path& path) {
  struct stat st {};
  ::stat(path.c_str(), &st);
  return st.st_dev;
}

// Paths of temporary copies anywhere below `folder`: none may survive a finished operation.
std::vector<std::string> partialCopies(const fs::path& folder) {
  std::vector<std::string> found;
  for (const auto& [path, entry] : snapshotTree(folder))
    if (fs::path(path).filename().string().starts_with(".vorlan-partial-")) found.push_back(path);
  return found;
}

class QuarantineFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(home / "Docs/a/one.txt", "first");
    writeFile(home / "Docs/a/deep/two.bin", std::string(3000, '\x02'));
    for (int i = 0; i < 3; ++i) writeFile(home / fmt::format("Docs/b/part{}.bin", i), std::string(400'000, char('0' + i)));
    writeFile(home / "Docs/c", "third");
    fs::create_directories(home / "Docs/sub/d");
    writeFile(home / "Docs/sub/d/four", "fourth");
  }

  test::Tree homeTree() const { return snapshotTree(home, {".vorlan"}); }
  Quarantine faulty(FileFaults faults) const {
    return Quarantine(Quarantine::defaultRoot(home), home, std::make_shared<FileFaults>(std::move(faults)));
  }
  fs::path onlyFolder() const {
    auto names = plain.batches();
    return names.size() == 1 ? plain.root / names[0] : fs::path();
  }

  TempDir dir;
  fs::path home = dir / "home";
  Quarantine plain{Quarantine::defaultRoot(home), home};
};

TEST_F(QuarantineFaults, SourceVanishingMidBatchIsAFailureOfItsOwn) {
  const auto before = homeTree();
  auto quarantine = faulty({.checkpoint = [&](std::string_view point, std::string_view relative) {
    if (point == "moved" && relative == "Docs/a") fs::rename(home / "Docs/b", dir / "b-elsewhere");
  }});
  const QuarantineBatch batch = quarantine.move({"Docs/a", "Docs/b", "Docs/c"}, kNow);
  EXPECT_EQ(batch.items.size(), 2u);
  EXPECT_EQ(batch.failures, std::vector<std::string>{"Docs/b"});
  EXPECT_EQ(treeDifference(test::subtree(before, "Docs/b"), snapshotTree(dir / "b-elsewhere")), "");
  fs::rename(dir / "b-elsewhere", home / "Docs/b");
  EXPECT_EQ(lostFiles(before, home, {plain.root / batch.id}), "");
}

TEST_F(QuarantineFaults, DestinationFolderThatCannotBeMadeLeavesTheSource) {
  struct Case {
    std::string name;
    std::function<void(const fs::path& batch)> block;
    bool needsPermissions;  // the superuser ignores them
  };
  const Case cases[] = {
      {"a file stands where the folder goes", [](const fs::path& b) { writeFile(b / "Docs/sub", "in the way"); }, false},
      {"a read-only folder", [](const fs::path& b) { fs::permissions(b / "Docs", fs::perms::owner_read | fs::perms::owner_exec); }, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.needsPermissions && test::runningAsRoot()) continue;
    const auto before = homeTree();
    fs::path batchFolder;
    auto quarantine = faulty({.checkpoint = [&](std::string_view point, std::string_view relative) {
      if (point == "intent" && relative == "Docs/a") batchFolder = onlyFolder();
      if (point == "moved" && relative == "Docs/a") c.block(batchFolder);
    }});
    const QuarantineBatch batch = quarantine.move({"Docs/a", "Docs/sub/d"}, kNow);
    EXPECT_EQ(batch.failures, std::vector<std::string>{"Docs/sub/d"});
    EXPECT_EQ(readFile(home / "Docs/sub/d/four"), "fourth");
    EXPECT_EQ(lostFiles(before, home, {batchFolder}), "");
    fs::permissions(batchFolder / "Docs", fs::perms::owner_all);
    plain.restore(batch.id);
    EXPECT_EQ(treeDifference(before, homeTree()), "");
  }
}

TEST_F(QuarantineFaults, MoveAcrossFileSystemsKeepsModesTimesAndLinks) {
  // The quarantine on a second file system, so that the move has to copy.
  SmallFileSystem other(dir / "other", "64m");
  fs::path root;
  struct RemovedAtEnd {
    fs::path path;
    ~RemovedAtEnd() {
      std::error_code ec;
      if (!path.empty()) fs::remove_all(path, ec);
    }
  } shm;
  if (other.mounted()) {
    root = other.path() / "quarantine";
  } else if (fs::is_directory("/dev/shm") && deviceOf("/dev/shm") != deviceOf(dir.path())) {
    shm.path = "/dev/shm/vorlan-test-" + std::to_string(::getpid());
    root = shm.path / "quarantine";
  } else {
    GTEST_SKIP() << "no second file system to move across";
  }
  const fs::path project = home / "Docs/project";
  writeFile(project / "notes.txt", "keep my mode and time");
  fs::permissions(project / "notes.txt", fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  writeFile(project / "tool", "#!/bin/sh\n");
  fs::permissions(project / "tool", fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec);
  writeFile(project / "locked/inside", "in a read-only folder");
  fs::permissions(project / "locked", fs::perms::owner_read | fs::perms::owner_exec);
  fs::create_symlink("notes.txt", project / "relative-link");
  fs::create_symlink("/nonexistent/target", project / "dangling-link");
  ASSERT_EQ(::mkfifo((project / "pipe").c_str(), 0640), 0);
  {
    // Sparse: 8 MB long, one block of data in the middle.
    int fd = ::open((project / "sparse.img").c_str(), O_CREAT | O_WRONLY, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::ftruncate(fd, 8 << 20), 0);
    ASSERT_EQ(::pwrite(fd, "data", 4, 4 << 20), 4);
    ::close(fd);
  }
  const timespec old[2] = {{978307200, 123456789}, {978307200, 987654321}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (project / "notes.txt").c_str(), old, 0), 0);
  ASSERT_EQ(::utimensat(AT_FDCWD, (project / "relative-link").c_str(), old, AT_SYMLINK_NOFOLLOW), 0);

  const auto before = homeTree();
  Quarantine quarantine(root, home);
  const QuarantineBatch batch = quarantine.move({"Docs/project", "Docs/c"}, kNow);
  ASSERT_NE(deviceOf(root), deviceOf(home));
  EXPECT_TRUE(batch.failures.empty());
  EXPECT_FALSE(fs::exists(project));
  const fs::path stored = root / batch.id;
  EXPECT_EQ(treeDifference(test::subtree(before, "Docs/project"), snapshotTree(stored / "Docs/project")), "");
  struct stat sparse {};
  ::stat((stored / "Docs/project/sparse.img").c_str(), &sparse);
  EXPECT_LT(int64_t(sparse.st_blocks) * 512, 1 << 20) << "holes were filled in";
  EXPECT_TRUE(partialCopies(stored).empty());

  const RestoreResult restored = quarantine.restore(batch.id);
  EXPECT_TRUE(restored.failed.empty());
  EXPECT_EQ(treeDifference(before, homeTree()), "");
  EXPECT_TRUE(partialCopies(home).empty());
}

TEST_F(QuarantineFaults, CopyFailingHalfwayLeavesTheSourceWhole) {
  const auto before = homeTree();
  // Through the seam: every rename reports another file system, and the disk "fills up"
  // in the middle of the second file of Docs/b.
  auto quarantine = faulty({.rename = [](std::string_view, std::string_view) { return EXDEV; },
                            .copyWrite = [](int64_t written) { return written >= 600'000 ? ENOSPC : 0; }});
  const QuarantineBatch batch = quarantine.move({"Docs/a", "Docs/b", "Docs/c"}, kNow);
  EXPECT_EQ(batch.failures, std::vector<std::string>{"Docs/b"});
  EXPECT_EQ(batch.items.size(), 2u);
  EXPECT_EQ(treeDifference(test::subtree(before, "Docs/b"), snapshotTree(home / "Docs/b")), "");
  EXPECT_TRUE(partialCopies(plain.root).empty());
  EXPECT_EQ(lostFiles(before, home, {plain.root / batch.id}), "");
  // What did move came through the copy path intact and goes back the same way.
  plain.restore(batch.id);
  EXPECT_EQ(treeDifference(before, homeTree()), "");
}

TEST_F(QuarantineFaults, FullFileSystemLeavesTheSourceWhole) {
  SmallFileSystem tiny(dir / "tiny", "1m");
  if (!tiny.mounted()) GTEST_SKIP() << "can't mount a small file system here";
  writeFile(home / "Docs/big.bin", std::string(3 << 20, 'x'));
  const auto before = homeTree();
  Quarantine quarantine(tiny.path() / "quarantine", home);
  const QuarantineBatch batch = quarantine.move({"Docs/big.bin", "Docs/c"}, kNow);
  EXPECT_EQ(batch.failures, std::vector<std::string>{"Docs/big.bin"});
  EXPECT_EQ(batch.items.size(), 1u);
  EXPECT_EQ(readFile(home / "Docs/big.bin"), std::string(3 << 20, 'x'));
  EXPECT_TRUE(partialCopies(tiny.path()).empty());
  EXPECT_EQ(lostFiles(before, home, {quarantine.root / batch.id}), "");
}

// Runs `body` in a child process; returns the signal that ended it, or 0.
int signalOfChild(const std::function<void()>& body) {
  pid_t pid = ::fork();
  if (pid == 0) {
    try {
      body();
    } catch (...) {
      ::_exit(3);
    }
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

TEST_F(QuarantineFaults, KilledMoveIsBroughtBackByRecover) {
  struct Case {
    std::string name;
    std::string point;  // checkpoint to die at; empty: die inside the copy
    std::string relative;
    bool acrossFileSystems;
    RecoverState state;
    std::vector<std::string> kept;
  };
  const Case cases[] = {
      {"first journal line, nothing made yet", "intent", "Docs/a", false, RecoverState::emptied, {}},
      {"journal written, not yet renamed", "intent", "Docs/b", false, RecoverState::emptied, {}},
      {"second item renamed", "moved", "Docs/b", false, RecoverState::emptied, {}},
      {"all moved, no manifest yet", "manifest", "", false, RecoverState::emptied, {}},
      {"copy half written", "", "Docs/b", true, RecoverState::emptied, {}},
      {"copy complete under its temporary name", "copied", "Docs/b", true, RecoverState::emptied, {}},
      // The copy is in place and the source not yet removed: both are whole, and recover
      // won't replace what stands at home, so the copy stays and is reported.
      {"copy in place, source still there", "placed", "Docs/b", true, RecoverState::leftOver, {"Docs/b"}},
      {"copy in place, source removed", "moved", "Docs/b", true, RecoverState::emptied, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto before = homeTree();
    FileFaults faults;
    faults.checkpoint = [&](std::string_view point, std::string_view relative) {
      if (point == c.point && relative == c.relative) ::raise(SIGKILL);
    };
    if (c.acrossFileSystems) faults.rename = [](std::string_view, std::string_view) { return EXDEV; };
    if (c.point.empty()) faults.copyWrite = [](int64_t written) {
      if (written >= 500'000) ::raise(SIGKILL);
      return 0;
    };
    auto quarantine = faulty(faults);
    ASSERT_EQ(signalOfChild([&] { quarantine.move({"Docs/a", "Docs/b", "Docs/c"}, kNow); }), SIGKILL);

    // The folder left behind is no batch: not listed, never expired, and nothing is lost.
    const fs::path folder = onlyFolder();
    ASSERT_FALSE(folder.empty());
    const std::string id = folder.filename().string();
    EXPECT_TRUE(plain.listBatches().empty());
    EXPECT_EQ(plain.orphanedFolders(), std::vector<std::string>{id});
    EXPECT_EQ(plain.expire(kNow + 100 * 604800), ExpireResult{});
    EXPECT_EQ(lostFiles(before, home, {folder}), "");

    const RecoverResult result = plain.recover(id);
    EXPECT_EQ(result.state, c.state);
    EXPECT_EQ(result.kept, c.kept);
    EXPECT_EQ(treeDifference(before, homeTree()), "");
    EXPECT_TRUE(partialCopies(home).empty());
    if (c.state == RecoverState::emptied) {
      EXPECT_FALSE(fs::exists(folder));
    } else {
      EXPECT_EQ(treeDifference(test::subtree(before, "Docs/b"), snapshotTree(folder / "Docs/b")), "");
      EXPECT_TRUE(partialCopies(folder).empty());
      fs::remove_all(folder);
    }
  }
}

TEST_F(QuarantineFaults, RecoverLeavesAFolderStillBeingFilled) {
  std::optional<RecoverResult> during;
  auto quarantine = faulty({.checkpoint = [&](std::string_view point, std::string_view relative) {
    if (point == "moved" && relative == "Docs/a") during = plain.recover(onlyFolder().filename().string());
  }});
  const QuarantineBatch batch = quarantine.move({"Docs/a", "Docs/c"}, kNow);
  ASSERT_TRUE(during);
  EXPECT_EQ(during->state, RecoverState::busy);
  EXPECT_EQ(batch.items.size(), 2u);
  EXPECT_EQ(plain.listBatches().size(), 1u);
  // A batch with its manifest is not recover's business.
  EXPECT_EQ(plain.recover(batch.id).state, RecoverState::notOrphan);
  EXPECT_TRUE(fs::exists(plain.root / batch.id / "Docs/a/one.txt"));
}

TEST_F(QuarantineFaults, RecoverReadsAFolderWithoutJournalByItsLayout) {
  // As a folder made by hand, or by a program that keeps no journal, would look.
  const fs::path folder = plain.root / "2026-01-01T000000";
  writeFile(folder / "Docs/returned/file", "goes back");
  writeFile(folder / "Docs/c", "a different third");  // its place is taken
  writeFile(folder / "manifest.json", "{ broken");
  const RecoverResult result = plain.recover("2026-01-01T000000");
  EXPECT_EQ(result.state, RecoverState::leftOver);
  EXPECT_EQ(result.restored, std::vector<std::string>{"Docs/returned"});
  EXPECT_EQ(result.kept, std::vector<std::string>{"Docs/c"});
  EXPECT_EQ(readFile(home / "Docs/returned/file"), "goes back");
  EXPECT_EQ(readFile(home / "Docs/c"), "third");
  EXPECT_EQ(readFile(folder / "Docs/c"), "a different third");
  EXPECT_TRUE(fs::exists(folder / "manifest.json"));
}

TEST_F(QuarantineFaults, RecoverTrustsNoJournalLine) {
  writeFile(dir / "victim/file", "must stay");
  const fs::path folder = plain.root / "2026-01-01T000000";
  writeFile(folder / "Docs/back", "comes back");
  writeFile(folder / "Docs/out", "would leave home");
  {
    fs::create_directories(folder);
    DirHandle handle = DirHandle::open(folder);
    MoveJournal journal = MoveJournal::create(handle);
    journal.append({"Docs/back", "Docs/back", "Docs/.vorlan-partial-1"});
    journal.append({"../victim/file", "Docs/out", ""});       // home path climbing out
    journal.append({"Docs/x", "../../victim/file", ""});      // batch path climbing out
  }
  {
    // A line cut short by a crash.
    std::ofstream torn(folder / ".vorlan-journal", std::ios::app);
    torn << R"({"original":"Docs/c","sto)";
  }
  const RecoverResult result = plain.recover("2026-01-01T000000");
  EXPECT_EQ(result.restored, std::vector<std::string>{"Docs/back"});
  EXPECT_EQ(result.kept, (std::vector<std::string>{"Docs/out", "../../victim/file"}));
  EXPECT_EQ(readFile(dir / "victim/file"), "must stay");
  EXPECT_EQ(readFile(home / "Docs/c"), "third");
  EXPECT_EQ(readFile(folder / "Docs/out"), "would leave home");
}

}  // namespace
}  // namespace vorlan

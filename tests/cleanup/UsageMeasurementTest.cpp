#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "cleanup/UsageMeasurement.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;

int64_t allocated(const fs::path& path) {
  struct stat st{};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return static_cast<int64_t>(st.st_blocks) * 512;
}

void setMtime(const fs::path& path, int64_t seconds) {
  timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

void writeFileWithMtime(const fs::path& path, size_t bytes, int64_t mtime) {
  test::writeFile(path, std::string(bytes, 'x'));
  setMtime(path, mtime);
}

TEST(UsageMeasurement, CountsAllocatedBlocksNeverFollowsLinksAndCountsEveryHardLinkName) {
  test::TempDir tmp;
  const auto root = tmp / "root";
  const auto outside = tmp / "outside";
  writeFileWithMtime(outside / "big", 4'000'000, 100);
  writeFileWithMtime(root / "a" / "data", 8192, 1000);

  // Sparse: a gigabyte long, one block on disk.
  const auto sparse = root / "a" / "sparse";
  {
    int fd = ::open(sparse.c_str(), O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::pwrite(fd, "x", 1, 1'000'000'000), 1);
    ::close(fd);
  }
  setMtime(sparse, 2000);

  writeFileWithMtime(root / "b" / "hard1", 20000, 1500);
  fs::create_hard_link(root / "b" / "hard1", root / "b" / "hard2");
  fs::create_hard_link(root / "b" / "hard1", outside / "hard3");
  fs::create_symlink(outside / "big", root / "link-to-file");
  fs::create_directory_symlink(outside, root / "link-to-folder");
  ASSERT_EQ(::mkfifo((root / "fifo").c_str(), 0644), 0);
  fs::create_directories(root / "newer-folder");
  // Only regular files date a folder: newer folders and links do not.
  setMtime(root / "newer-folder", 9'000'000'000);
  setMtime(root / "link-to-file", 9'000'000'000);

  const UsageStat stat = walkTree(root);
  const int64_t expected = allocated(root / "a") + allocated(root / "a" / "data") +
                           allocated(sparse) + allocated(root / "b") +
                           allocated(root / "b" / "hard1") + allocated(root / "b" / "hard2") +
                           allocated(root / "link-to-file") +
                           allocated(root / "link-to-folder") + allocated(root / "fifo") +
                           allocated(root / "newer-folder");
  EXPECT_EQ(stat.bytes, expected);
  EXPECT_LT(stat.bytes, 1'000'000) << "apparent size or a link target was counted";
  EXPECT_EQ(stat.fileCount, 4);  // data, sparse and both names of one file
  EXPECT_EQ(stat.lastChangedEpoch, 2000);

  // measureItem adds the folder's own blocks; a link is only its own blocks.
  EXPECT_EQ(measureItem(root), allocated(root) + expected);
  EXPECT_EQ(measureItem(root / "link-to-file"), allocated(root / "link-to-file"));
  EXPECT_EQ(measureItem(sparse), allocated(sparse));
  EXPECT_EQ(measureItem(tmp / "missing"), 0);
  EXPECT_EQ(walkTree(tmp / "missing"), UsageStat{});
  // A link given as the start is not followed either.
  EXPECT_EQ(walkTree(root / "link-to-folder"), UsageStat{});
}

TEST(UsageMeasurement, EmptyFoldersHaveNoDateAndFutureDatesStand) {
  test::TempDir tmp;
  fs::create_directories(tmp / "empty" / "x" / "y");
  const UsageStat empty = walkTree(tmp / "empty");
  EXPECT_EQ(empty.fileCount, 0);
  EXPECT_EQ(empty.lastChangedEpoch, 0);
  EXPECT_EQ(empty.bytes, allocated(tmp / "empty" / "x") + allocated(tmp / "empty" / "x" / "y"));

  writeFileWithMtime(tmp / "future" / "f", 10, 4'000'000'000);
  writeFileWithMtime(tmp / "future" / "g", 10, 1);
  EXPECT_EQ(walkTree(tmp / "future").lastChangedEpoch, 4'000'000'000);
}

TEST(UsageMeasurement, UnreadableSubfolderIsSkipped) {
  if (test::runningAsRoot()) GTEST_SKIP() << "root reads every folder";
  test::TempDir tmp;
  writeFileWithMtime(tmp / "root" / "open" / "f", 100, 50);
  writeFileWithMtime(tmp / "root" / "closed" / "secret", 1'000'000, 60);
  fs::permissions(tmp / "root" / "closed", fs::perms::none);
  const UsageStat stat = walkTree(tmp / "root");
  EXPECT_EQ(stat.fileCount, 1);
  EXPECT_EQ(stat.lastChangedEpoch, 50);
  EXPECT_EQ(stat.bytes, allocated(tmp / "root" / "open") + allocated(tmp / "root" / "open" / "f") +
                            allocated(tmp / "root" / "closed"));
}

// Builds `levels` nested folders below `root` with fd-relative calls (the path outgrows
// PATH_MAX), with a small file every `fileEvery` levels and one at the bottom.
int64_t makeDeepTree(const fs::path& root, int levels, int fileEvery) {
  fs::create_directories(root);
  int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
  int64_t files = 0;
  for (int level = 0; level < levels; ++level) {
    if (level % fileEvery == 0 || level == levels - 1) {
      int file = ::openat(fd, "file", O_WRONLY | O_CREAT, 0644);
      EXPECT_EQ(::write(file, "abc", 3), 3);
      timespec times[2] = {{level, 0}, {level, 0}};
      ::futimens(file, times);
      ::close(file);
      ++files;
    }
    EXPECT_EQ(::mkdirat(fd, "level-dir", 0755), 0);
    int next = ::openat(fd, "level-dir", O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = next;
  }
  ::close(fd);
  return files;
}

// Takes a deep chain apart from the top by moving each child up, so that no path gets long.
void removeDeepTree(const fs::path& root) {
  int top = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
  std::string current = "level-dir";
  for (int round = 0;; ++round) {
    int fd = ::openat(top, current.c_str(), O_RDONLY | O_DIRECTORY);
    if (fd < 0) break;
    std::string moved = "up-" + std::to_string(round);
    bool hasChild = ::renameat(fd, "level-dir", top, moved.c_str()) == 0;
    ::unlinkat(fd, "file", 0);
    ::close(fd);
    ::unlinkat(top, current.c_str(), AT_REMOVEDIR);
    if (!hasChild) break;
    current = moved;
  }
  ::close(top);
  fs::remove_all(root);
}

TEST(UsageMeasurement, DeepTreeBeyondPathLimitIsWalkedWhole) {
  test::TempDir tmp;
  const auto root = tmp / "deep";
  constexpr int kLevels = 2'500;  // about 25,000 characters of path
  const int64_t files = makeDeepTree(root, kLevels, 400);
  const UsageStat stat = walkTree(root);
  EXPECT_EQ(stat.fileCount, files);
  EXPECT_EQ(stat.lastChangedEpoch, kLevels - 1);
  EXPECT_GE(stat.bytes, int64_t{kLevels} * 512) << "some levels were not reached";
  removeDeepTree(root);
}

TEST(UsageMeasurement, ChildFoldersOnly) {
  test::TempDir tmp;
  const auto parent = tmp / "parent";
  writeFileWithMtime(parent / "a" / "one", 5000, 10);
  writeFileWithMtime(parent / "b" / "sub" / "two", 5000, 20);
  writeFileWithMtime(parent / "loose-file", 5000, 30);
  fs::create_directories(tmp / "elsewhere");
  fs::create_directory_symlink(tmp / "elsewhere", parent / "link");

  const auto children = measureChildren(parent);
  ASSERT_EQ(children.size(), 2u);
  EXPECT_EQ(children.at("a"), walkTree(parent / "a"));
  EXPECT_EQ(children.at("b"), (UsageStat{allocated(parent / "b" / "sub") +
                                             allocated(parent / "b" / "sub" / "two"),
                                         20, 1}));
  EXPECT_TRUE(measureChildren(tmp / "missing").empty());

  const auto missing = childFolders(tmp / "missing");
  EXPECT_FALSE(missing.listed);
  EXPECT_TRUE(missing.missing);
  EXPECT_FALSE(childFolders(parent / "loose-file").missing);
}

}  // namespace
}  // namespace vorlan

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "platform/UsageMeasurement.hpp"
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
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

void writeDated(const fs::path& path, size_t bytes, int64_t mtime) {
  test::writeFile(path, std::string(bytes, 'x'));
  setMtime(path, mtime);
}

TEST(UsageMeasurement, AllocatedBlocksNoLinksFollowedEveryHardLinkName) {
  test::TempDir tmp;
  const auto root = tmp / "root";
  writeDated(tmp / "outside/big", 4'000'000, 100);
  // A gigabyte long, one block on disk.
  const auto sparse = root / "sparse";
  test::writeFile(sparse, "");
  fs::resize_file(sparse, 1'000'000'000);
  std::ofstream(sparse, std::ios::app) << 'x';
  setMtime(sparse, 2000);
  writeDated(root / "b/hard1", 20000, 1500);
  fs::create_hard_link(root / "b/hard1", root / "b/hard2");
  fs::create_hard_link(root / "b/hard1", tmp / "outside/hard3");
  fs::create_symlink(tmp / "outside/big", root / "link");
  fs::create_directory_symlink(tmp / "outside", root / "link-dir");
  fs::create_directories(root / "empty/x");
  setMtime(root / "link", 9'000'000'000);  // only regular files date a folder

  const UsageStat stat = walkTree(root);
  int64_t bytes = 2 * allocated(root / "b/hard1");
  for (const char* name : {"sparse", "b", "link", "link-dir", "empty", "empty/x"}) bytes += allocated(root / name);
  EXPECT_EQ(stat, (UsageStat{bytes, 2000, 3}));
  EXPECT_EQ(measureItem(root), allocated(root) + stat.bytes);
  EXPECT_EQ(measureItem(root / "link"), allocated(root / "link"));
  EXPECT_EQ(walkTree(root / "link-dir"), UsageStat{});
  // A folder without files has no date.
  EXPECT_EQ(walkTree(root / "empty"), (UsageStat{allocated(root / "empty/x"), 0, 0}));
}

TEST(UsageMeasurement, UnreadableSubfolderIsSkipped) {
  if (test::runningAsRoot()) GTEST_SKIP() << "root reads every folder";
  test::TempDir tmp;
  writeDated(tmp / "root/open/f", 100, 50);
  writeDated(tmp / "root/closed/secret", 1'000'000, 60);
  fs::permissions(tmp / "root/closed", fs::perms::none);
  const int64_t bytes = allocated(tmp / "root/open") + allocated(tmp / "root/open/f") + allocated(tmp / "root/closed");
  EXPECT_EQ(walkTree(tmp / "root"), (UsageStat{bytes, 50, 1}));
}

// Deeper than the path limit, so it is built with calls relative to an open folder.
TEST(UsageMeasurement, DeepTreeBeyondPathLimitIsWalkedWhole) {
  constexpr int kLevels = 2'500;  // about 25,000 characters of path
  test::TempDir tmp;
  int fd = ::open(tmp.path().c_str(), O_RDONLY | O_DIRECTORY);
  for (int level = 0; level < kLevels; ++level) {
    EXPECT_EQ(::mkdirat(fd, "level-dir", 0755), 0);
    int next = ::openat(fd, "level-dir", O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = next;
  }
  ::close(::openat(fd, "file", O_WRONLY | O_CREAT, 0644));
  ::close(fd);
  const UsageStat stat = walkTree(tmp.path());
  EXPECT_EQ(stat.fileCount, 1) << "the bottom was not reached";
  EXPECT_GE(stat.bytes, int64_t{kLevels} * 512);
  // rm walks relative to open folders; the temporary folder's own clean-up would stop at the limit.
  EXPECT_EQ(test::runProcess({"/bin/rm", "-rf", (tmp / "level-dir").string()}).exitCode, 0);
}

}  // namespace
}  // namespace vorlan

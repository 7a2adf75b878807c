#include <gtest/gtest.h>

#include "platform/VolumeFigures.hpp"

namespace vorlan {
namespace {

// The report prints total, free and used side by side: on Linux they must add up, or the
// superuser's reserved blocks (often 5 % of the disk) show as used space that df does not show.
// The figures are read at two instants; the margin only absorbs other programs' writes between.
TEST(VolumeFigures, UsedAndFreeAddUpToTheTotalAndAnUnreadableVolumeIsAbsent) {
  EXPECT_EQ(diskUsage("/nonexistent/vorlan"), DiskUsage{});
  EXPECT_EQ(settingsUsedBytes("/nonexistent/vorlan"), std::nullopt);
#ifdef __APPLE__
  GTEST_SKIP() << "macOS counts the used figure against the space the user may still write";
#endif
  const DiskUsage disk = diskUsage("/");
  const auto used = settingsUsedBytes("/");
  ASSERT_TRUE(used.has_value());
  ASSERT_GT(disk.total, 0);
  EXPECT_NEAR(static_cast<double>(*used + disk.free), static_cast<double>(disk.total), disk.total / 500.0);
}

}  // namespace
}  // namespace vorlan

// `vorlan clean --yes` and `vorlan quarantine restore` killed with SIGKILL at random instants,
// the home on one tmpfs and the folder on another so that every move copies, then
// `vorlan quarantine recover`: afterwards each file of the tree is whole in exactly one place
// (contents, modes, times, link targets, names of one file), no temporary copy is left
// anywhere, and nothing outside changed.
#include <chrono>
#include <cstdio>
#include <random>

#include "quarantine/QuarantineFixture.hpp"

namespace vorlan::test {
namespace {

using Clock = std::chrono::steady_clock;
constexpr int kRounds = 20;
const std::string kItem = "Library/Caches/com.gone.tool";

// Runs the built vorlan, killed with SIGKILL when still at work after `killAt`: the time it
// took, and whether the kill found it at work.
std::pair<Clock::duration, bool> runVorlan(const fs::path& home, const std::vector<std::string>& args,
                                           Clock::duration killAt = std::chrono::minutes(1)) {
  ProcessOptions options;
  options.timeoutSeconds = std::chrono::duration<double>(killAt).count();
  const auto start = Clock::now();
  const bool killed = runCli(home, args, options).exitCode == -1;
  return {Clock::now() - start, killed};
}

void makeTree(const fs::path& root, const fs::path& outside) {
  for (int d = 0; d < 30; ++d) {
    const fs::path folder = root / ("d" + std::to_string(d)) / "inner";
    for (int f = 0; f < 40; ++f) {
      const fs::path file = folder / ("f" + std::to_string(f));
      writeFile(file, std::string(static_cast<size_t>(f * 37 + d), static_cast<char>('a' + f % 26)));
      fs::permissions(file, f % 3 == 0 ? fs::perms(0600) : f % 3 == 1 ? fs::perms(0640) : fs::perms(0755));
    }
    fs::create_hard_link(folder / "f1", root / ("d" + std::to_string(d)) / "f1-again");
    fs::create_symlink("inner/f2", root / ("d" + std::to_string(d)) / "relative");
  }
  fs::create_symlink(outside / "kept", root / "to-outside");
  for (int n = 0; n < 3; ++n) writeFile(root / ("big" + std::to_string(n)), std::string(2 << 20, static_cast<char>('0' + n)));
}

TEST(QuarantineKillLoop, EveryFileIsWholeInExactlyOnePlaceAfterAnyKill) {
  TempDir dir;
  const fs::path home = dir / "home", outside = dir / "outside";
  Mounts mounts;
  for (const fs::path& at : {home, home / "Library/Caches"})
    if (!mounts.mount({}, at)) GTEST_SKIP() << "mounting two tmpfs file systems needs root and a system that allows it";
  writeFile(outside / "kept", "outside the test's home");
  makeTree(home / kItem, outside);
  const Tree original = snapshotTree(home / kItem), outsideBefore = snapshotTree(outside);
  const Quarantine quarantine(Quarantine::defaultRoot(home), home);
  const std::vector<std::string> clean{"clean", "--yes", "--no-progress", kItem}, recover{"quarantine", "recover"};

  int64_t filesChecked = 0;
  // Whole in exactly one place: at home, or in the one batch that lists it, never both.
  auto wholeInOnePlace = [&](const std::string& when) -> std::string {
    SCOPED_TRACE(when);
    EXPECT_EQ(quarantine.orphanedFolders(), std::vector<std::string>{});
    EXPECT_EQ(partialCopies(home), "");
    EXPECT_EQ(treeDifference(outsideBefore, snapshotTree(outside)), "");
    std::string holder;
    for (const auto& batch : quarantine.listBatches()) {
      EXPECT_EQ(batch.items.size(), 1u);
      EXPECT_TRUE(holder.empty()) << "in two batches";
      holder = batch.id;
    }
    const fs::path place = holder.empty() ? home / kItem : quarantine.root / holder / kItem;
    EXPECT_TRUE(holder.empty() || !fs::exists(fs::symlink_status(home / kItem))) << "at home and in a batch";
    EXPECT_EQ(treeDifference(original, snapshotTree(place)), "");
    filesChecked += static_cast<int64_t>(original.size());
    return holder;
  };
  // Back home, whole, for the next round.
  auto backHome = [&](const std::string& holder) {
    if (!holder.empty()) runVorlan(home, {"quarantine", "restore", holder});
    EXPECT_EQ(wholeInOnePlace("restored to start again"), "");
  };

  // How long each takes uninterrupted sets the range of the kill instants.
  const auto cleanTime = runVorlan(home, clean).first;
  const std::string first = wholeInOnePlace("a clean run");
  ASSERT_FALSE(first.empty());
  const auto restoreTime = runVorlan(home, {"quarantine", "restore", first}).first;
  backHome("");
  std::mt19937 random(20261123);
  auto instant = [&](Clock::duration range) {
    return std::chrono::microseconds(std::uniform_int_distribution<int64_t>(
        0, std::chrono::duration_cast<std::chrono::microseconds>(range).count() * 11 / 10)(random));
  };

  int cleanKills = 0, restoreKills = 0;
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    cleanKills += runVorlan(home, clean, instant(cleanTime)).second;
    runVorlan(home, recover);
    backHome(wholeInOnePlace("clean killed, round " + std::to_string(round)));

    runVorlan(home, clean);
    const auto batches = quarantine.batches();
    ASSERT_EQ(batches.size(), 1u);
    restoreKills += runVorlan(home, {"quarantine", "restore", batches[0]}, instant(restoreTime)).second;
    runVorlan(home, recover);
    backHome(wholeInOnePlace("restore killed, round " + std::to_string(round)));
  }
  std::printf("kill loop: %d rounds, %d kills landed during clean and %d during restore, %lld files checked\n",
              kRounds, cleanKills, restoreKills, static_cast<long long>(filesChecked));
  // A loop whose kills all came too late would have proved nothing.
  EXPECT_GT(cleanKills + restoreKills, 0);
}

}  // namespace
}  // namespace vorlan::test

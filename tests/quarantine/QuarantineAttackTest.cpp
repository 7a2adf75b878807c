// The quarantine attacked as a hostile or unlucky user would, through the command line: mounts
// inside what moves or is stored, a store linked out of the home, pipes where files are read,
// two runs at once, and kills at random instants across two file systems. Each case checks
// that nothing outside the home was touched and that no file was lost.
#include <sys/socket.h>
#include <sys/un.h>

#include <ctime>
#include <cstdio>
#include <future>

#include "cleanup/AppOwnership.hpp"
#include "cleanup/CleanupExecution.hpp"
#include "network/Telemetry.hpp"
#include "quarantine/QuarantineFixture.hpp"
#include "quarantine/StoreLock.hpp"

namespace vorlan::test {
namespace {

constexpr int64_t kLongAgo = 1'600'000'000;

// A command that hangs is killed and fails the case.
ProcessOutcome vorlanIn(const fs::path& home, std::vector<std::string> args) {
  ProcessOptions options;
  options.timeoutSeconds = 30;
  return runCli(home, std::move(args), options);
}

TEST_F(QuarantineTest, NothingMountedInsideIsMovedOrEmptied) {
  writeFile(outside / "deep/precious", "lives on another mount");
  writeFile(home / ".cache/x/own", "x");
  writeFile(home / ".cache/loop/own", "l");
  // Mounted at `item`/m, at home or, when stored at that time, in its batch.
  struct Case { std::string name, item; int64_t storedAt; std::vector<std::string> command; bool mountsHome = false; };
  const Case cases[] = {
      {"inside a folder to clean", ".cache/x", 0, {"clean", "--yes", "--no-progress", ".cache/x"}},
      {"the home inside its own cache", ".cache/loop", 0, {"clean", "--yes", "--no-progress", ".cache/loop"}, true},
      {"inside a stored batch, then empty", "Docs/a", std::time(nullptr), {"quarantine", "empty", "--yes"}},
      {"inside a stored batch, then expire", "Docs/b", kLongAgo, {"quarantine", "expire"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string batch = c.storedAt ? quarantine.move({c.item}, c.storedAt).id : "";
    Mounts mounts;
    if (!mounts.mount(c.mountsHome ? home : outside, (batch.empty() ? home : quarantine.root / batch) / c.item / "m"))
      GTEST_SKIP() << "mounting needs root; skipped";
    const Tree outsideBefore = snapshotTree(outside), homeBefore = homeTree();
    const auto batchesBefore = quarantine.listBatches();
    const auto run = vorlanIn(home, c.command);
    EXPECT_EQ(run.exitCode, 1) << run.out << run.err;
    EXPECT_TRUE((run.out + run.err).contains("마운트")) << run.out << run.err;
    EXPECT_EQ(treeDifference(outsideBefore, snapshotTree(outside)), "");
    if (batch.empty()) {
      EXPECT_EQ(treeDifference(homeBefore, homeTree()), "");
      EXPECT_EQ(quarantine.listBatches(), batchesBefore) << "no batch for a run that moved nothing";
    } else {
      // A purge that met the mount leaves its batch listed, to be tried again.
      EXPECT_NO_THROW(quarantine.manifest(batch));
    }
  }
}

TEST_F(QuarantineTest, AStoreLinkedOutOfTheHomeIsRefusedByEveryCommand) {
  // Outside: what looks like an expired batch and a folder cut off mid-move.
  const fs::path fake = outside / "store";
  writeFile(fake / "quarantine/2020-01-01T000000/Docs/x/f", "outside");
  writeFile(fake / "quarantine/2020-01-01T000000/manifest.json",
            encodeManifest({"2020-01-01T000000", 0, 1, {{"Docs/x", "Docs/x", 1}}, {}}));
  writeFile(fake / "quarantine/2020-01-02T000000/Docs/y/g", "outside too");
  const std::vector<std::vector<std::string>> commands{
      {"quarantine", "list"}, {"quarantine", "recover"}, {"quarantine", "expire"}, {"quarantine", "empty", "--yes"},
      {"quarantine", "restore", "2020-01-01T000000"}, {"clean", "--yes", "--no-progress", "Docs/c"}};
  const std::string refusal = "보관함 폴더가 홈 폴더 밖으로 이어져 있어(링크) 아무것도 하지 않았습니다: " +
                              quarantine.root.string() + "\n";
  for (const auto& [link, target] : {std::pair{".vorlan", fake}, {".vorlan/quarantine", fake / "quarantine"}}) {
    SCOPED_TRACE(std::string(link) + " linked");
    fs::remove_all(home / ".vorlan");
    fs::create_directories((home / link).parent_path());
    fs::create_directory_symlink(target, home / link);
    const Tree before = snapshotTree(dir.path());
    for (const auto& command : commands) {
      const auto run = vorlanIn(home, command);
      EXPECT_EQ(run.exitCode, 1) << command[1];
      EXPECT_TRUE(run.err.ends_with(refusal)) << run.err;
      EXPECT_EQ(treeDifference(before, snapshotTree(dir.path())), "") << command[1];
    }
    // The app's cleanup too: the user's files would leave the home folder.
    const CleanupOutcome out = executeCleanup({"Docs/c"}, {}, {"Docs/c"}, {}, quarantine, kNow);
    EXPECT_TRUE(out.executeError.value_or("").starts_with("삭제하지 못했습니다: ")) << out.executeError.value_or("");
    EXPECT_TRUE(out.processed.empty());
    EXPECT_EQ(treeDifference(before, snapshotTree(dir.path())), "");
  }
}

// A pipe, a socket or a link where the program reads a file of its own: nothing waits on it
// and nothing is lost because of it.
TEST(QuarantineAttack, NonRegularFilesAreReadAsUnreadable) {
  // Each place relative to a home that holds one batch and one folder cut off mid-move.
  const int64_t now = std::time(nullptr);  // a batch that isn't due, so that expire keeps it
  const std::string batchId = Quarantine::batchID(now), orphan = ".vorlan/quarantine/2020-01-01T000000/";
  const std::string places[] = {".vorlan/quarantine/" + batchId + "/manifest.json",
                                ".vorlan/quarantine/" + batchId + "/.vorlan-restore-journal",
                                orphan + "manifest.json", orphan + ".vorlan-journal", ".vorlan/lock",
                                ".vorlan/install_id", "Applications/X.app/Contents/Info.plist"};
  for (const char kind : {'p', 's', 'l'}) {
    for (const auto& place : places) {
      SCOPED_TRACE(std::string(1, kind) + " at " + place);
      TempDir dir;
      const fs::path home = dir / "h";
      writeFile(home / "Docs/a/one.txt", "stored");
      const Quarantine quarantine(Quarantine::defaultRoot(home), home);
      ASSERT_EQ(quarantine.move({"Docs/a"}, now).id, batchId);
      writeFile(home / orphan / "Docs/b/p9", "cut off mid-move");
      const fs::path at = home / place;
      fs::remove(at);
      fs::create_directories(at.parent_path());
      ASSERT_TRUE(kind != 'p' || ::mkfifo(at.c_str(), 0600) == 0);
      if (kind == 'l') fs::create_symlink("/dev/zero", at);
      if (kind == 's') {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (at.string().size() >= sizeof address.sun_path) continue;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", at.c_str());
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(fd);
      }
      // Each returns rather than waiting for a writer that never comes.
      (void)Telemetry::installID(Telemetry::installIDFile(home));
      EXPECT_EQ(bundleIdentifierOfInfoPlist(home / "Applications/X.app/Contents/Info.plist"), "");
      for (const std::vector<std::string>& command :
           {std::vector<std::string>{"quarantine", "list"}, {"quarantine", "expire"},
            {"quarantine", "restore", batchId}, {"quarantine", "recover"}}) {
        const auto run = vorlanIn(home, command);
        EXPECT_TRUE(run.exitCode == 0 || run.exitCode == 1) << command[1] << " ended with " << run.exitCode;
        EXPECT_FALSE(run.err.contains("예기치")) << run.err;
      }
      // The stored item is in the batch or back at home, once; the cut-off one likewise.
      EXPECT_NE(fs::exists(home / "Docs/a/one.txt"), fs::exists(home / ".vorlan/quarantine" / batchId / "Docs/a/one.txt"));
      EXPECT_NE(fs::exists(home / "Docs/b/p9"), fs::exists(home / orphan / "Docs/b/p9"));
    }
  }
}

TEST_F(QuarantineTest, OneStoreOperationAtATime) {
  // Held by another run (the app, say): a command waits a moment, then refuses in one line.
  fs::create_directories(home / ".vorlan");
  {
    const StoreLock held = StoreLock::acquire(DirHandle::open(home / ".vorlan"), 0);
    const Tree before = snapshotTree(dir.path());
    const auto run = vorlanIn(home, {"clean", "--yes", "--no-progress", "Docs/a"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("다른 Vorlan이 보관함을 쓰고 있어 아무것도 하지 않았습니다")) << run.err;
    EXPECT_EQ(treeDifference(before, snapshotTree(dir.path())), "");
  }
  // Two runs of the same folder at once: it lands in one batch, whole.
  const Tree before = homeTree();
  auto clean = [&] { return vorlanIn(home, {"clean", "--yes", "--no-progress", "Docs/b"}); };
  auto first = std::async(std::launch::async, clean), second = std::async(std::launch::async, clean);
  const int succeeded = (first.get().exitCode == 0) + (second.get().exitCode == 0);
  EXPECT_EQ(succeeded, 1);
  const auto batches = quarantine.listBatches();
  ASSERT_EQ(batches.size(), 1u);
  EXPECT_EQ(batches[0].items.size(), 1u);
  EXPECT_EQ(lost(before, quarantine.root / batches[0].id), "");
  EXPECT_EQ(quarantine.orphanedFolders(), std::vector<std::string>{});
}

}  // namespace
}  // namespace vorlan::test

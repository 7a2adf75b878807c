// Faults while moving into the quarantine, each proving that no file is lost: every original
// file is afterwards either in place or in the batch, byte for byte. Cases named as regressions
// are faults found by attacking the store on purpose.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>

#include <fstream>

#include "platform/UsageMeasurement.hpp"
#include "quarantine/MoveJournal.hpp"
#include "quarantine/QuarantineFixture.hpp"

namespace vorlan::test {
namespace {

TEST_F(QuarantineTest, WhatGoesWrongMidBatchFailsOnlyItsOwnItem) {
  // `fault` strikes once Docs/a is in the batch, `faults` hold all along, `readOnly` is a folder at home.
  struct Case {
    std::string name, second;
    std::function<void(const fs::path& batch)> fault;
    FileFaults faults = {};
    bool needsPermissions = false;
    std::string readOnly = "";
  };
  const Case cases[] = {
      {"the source vanishes", "Docs/b", [&](const fs::path&) { fs::rename(home / "Docs/b", dir / "b-elsewhere"); }},
      {"a file where its folder goes", "Docs/sub/d", [](const fs::path& b) { writeFile(b / "Docs/sub", "x"); }},
      // The superuser writes into it all the same.
      {"its folder can't be made", "Docs/sub/d", [](const fs::path& b) { ::chmod((b / "Docs").c_str(), 0500); }, {}, true},
      {"the disk fills up in the middle of its second file", "Docs/b", {},
       {.rename = crossDevice, .copyWrite = [](int64_t n) { return n >= 600'000 ? ENOSPC : 0; }}},
      // A copy once took the entry out of a folder the user keeps read-only, opening it up for writing.
      {"copied out of a read-only folder", "Docs/sub/d", {}, {.rename = crossDevice}, true, "Docs/sub"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.needsPermissions && runningAsRoot()) continue;
    if (!c.readOnly.empty()) fs::permissions(home / c.readOnly, fs::perms::owner_read | fs::perms::owner_exec);
    const Tree before = homeTree();
    std::string during;
    Quarantine impatient = quarantine;
    impatient.lockWaitMilliseconds = 0;
    FileFaults faults = c.faults;
    faults.checkpoint = [&](std::string_view point, std::string_view relative) {
      if (point != "moved" || relative != "Docs/a") return;
      if (c.fault) c.fault(onlyFolder());
      // A living move holds the store: nothing else touches it meanwhile.
      during = refused([&] { impatient.recover(onlyFolder().filename().string(), kNow); });
    };
    const QuarantineBatch batch = faulty(faults).move({"Docs/a", c.second, "Library/Caches/app"}, kNow);
    EXPECT_EQ(batch.failures, std::vector{c.second});
    EXPECT_EQ(during, "storeBusy: lock");
    EXPECT_EQ(quarantine.recover(batch.id, kNow).state, RecoverState::notOrphan);
    if (fs::exists(dir / "b-elsewhere")) fs::rename(dir / "b-elsewhere", home / "Docs/b");
    EXPECT_EQ(treeDifference(subtree(before, c.second), snapshotTree(home / c.second)), "");
    EXPECT_EQ(partialCopies(quarantine.root), "");
    EXPECT_EQ(lost(before, quarantine.root / batch.id), "");
    fs::permissions(quarantine.root / batch.id / "Docs", fs::perms::owner_all);
    EXPECT_EQ(quarantine.restore(batch.id), (RestoreResult{{"Docs/a", "Library/Caches/app"}, {}, {}}));
    EXPECT_EQ(treeDifference(before, homeTree()), "");
    if (!c.readOnly.empty()) fs::permissions(home / c.readOnly, fs::perms::owner_all);
  }
}

TEST_F(QuarantineTest, MoveAcrossFileSystemsKeepsModesTimesAndLinks) {
  // Every rename says "another file system", both ways; real file systems are the fault loop's.
  const Quarantine q = faulty({.rename = crossDevice});
  const fs::path p = home / "Docs/project";
  writeFile(p / "notes.txt", "keep my mode and time");
  writeFile(p / "tool", "#!/bin/sh\n");
  writeFile(p / "locked/inside", "in a read-only folder");
  for (auto [name, mode] : {std::pair{"notes.txt", 0640}, {"tool", 0750}, {"locked", 0500}}) chmod((p / name).c_str(), mode);
  fs::create_symlink("notes.txt", p / "relative-link");
  fs::create_symlink("/nonexistent/target", p / "dangling-link");
  fs::create_hard_link(p / "notes.txt", p / "same-notes");  // two names, one file
  ASSERT_EQ(::mkfifo((p / "pipe").c_str(), 0640), 0);
  std::ofstream(p / "sparse.img", std::ios::binary).seekp(4 << 20) << "data";  // 8 MB, four bytes of data
  fs::resize_file(p / "sparse.img", 8 << 20);
  const timespec old[2] = {{978307200, 123456789}, {978307200, 987654321}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (p / "notes.txt").c_str(), old, 0), 0);
  ASSERT_EQ(::utimensat(AT_FDCWD, (p / "relative-link").c_str(), old, AT_SYMLINK_NOFOLLOW), 0);

  const Tree before = homeTree();
  const QuarantineBatch batch = q.move({"Docs/project", "Docs/c"}, kNow);
  const fs::path stored = q.root / batch.id;
  EXPECT_TRUE(batch.failures.empty());
  EXPECT_EQ(treeDifference(subtree(before, "Docs/project"), snapshotTree(stored / "Docs/project")), "");
  EXPECT_LT(measureItem(stored / "Docs/project/sparse.img"), 1 << 20) << "holes were filled in";
  EXPECT_EQ(partialCopies(stored), "");
  EXPECT_EQ(q.restore(batch.id), (RestoreResult{{"Docs/project", "Docs/c"}, {}, {}}));
  EXPECT_EQ(treeDifference(before, homeTree()), "");  // no temporary copy left at home either
}

TEST_F(QuarantineTest, KilledMoveIsBroughtBackByRecover) {
  // Killed at a checkpoint, or without one inside the copy.
  struct Case { std::string name, point, relative; bool acrossFileSystems; };
  const Case cases[] = {
      {"first journal line, nothing made yet", "intent", "Docs/a", false},
      {"journal written, not yet renamed", "intent", "Docs/b", false},
      {"second item renamed", "moved", "Docs/b", false},
      {"all moved, no manifest yet", "manifest", "", false},
      {"copy half written", "", "Docs/b", true},
      {"copy complete under its temporary name", "copied", "Docs/b", true},
      // The copy was whole before the source began to go: recover finishes the move, then undoes it.
      {"copy in place, source still there", "placed", "Docs/b", true},
      {"copy in place, source removed", "moved", "Docs/b", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Tree before = homeTree();
    FileFaults faults{.checkpoint = [&](std::string_view point, std::string_view relative) {
      if (point == c.point && relative == c.relative) ::raise(SIGKILL);
    }};
    if (c.acrossFileSystems) faults.rename = crossDevice;
    if (c.point.empty()) faults.copyWrite = [](int64_t written) { return written >= 500'000 ? ::raise(SIGKILL) : 0; };
    const Quarantine q = faulty(faults);
    ASSERT_EQ(signalOfChild([&] { q.move({"Docs/a", "Docs/b", "Docs/c"}, kNow); }), SIGKILL);

    // The folder left behind is no batch: not listed, never expired, and nothing is lost.
    const fs::path folder = onlyFolder();
    const std::string id = folder.filename().string();
    ASSERT_FALSE(id.empty());
    EXPECT_TRUE(quarantine.listBatches().empty());
    EXPECT_EQ(quarantine.orphanedFolders(), std::vector<std::string>{id});
    EXPECT_EQ(quarantine.expire(kNow + 100 * Quarantine::holdSeconds), ExpireResult{});
    EXPECT_EQ(lost(before, folder), "");

    const RecoverResult result = quarantine.recover(id, kNow);
    EXPECT_EQ(result.state, RecoverState::emptied);
    EXPECT_EQ(result.kept, std::vector<std::string>{});
    EXPECT_EQ(treeDifference(before, homeTree()), "");
    EXPECT_EQ(partialCopies(folder), "");
    fs::remove_all(folder);
  }
}

TEST_F(QuarantineTest, RecoverReplacesNothingAndTrustsNoJournalLine) {
  writeFile(dir / "victim/file", "must stay");
  // Without a journal, as a folder made by hand: read by its layout.
  const fs::path byHand = quarantine.root / "2026-01-01T000000";
  writeFile(byHand / "Docs/returned/file", "goes back");
  writeFile(byHand / "Docs/c", "a different third");  // its place is taken
  writeFile(byHand / "manifest.json", "{ broken");
  EXPECT_EQ(quarantine.recover("2026-01-01T000000", kNow),
            (RecoverResult{"2026-01-01T000000", RecoverState::leftOver, {"Docs/returned"}, {"Docs/c"}, {}}));
  EXPECT_EQ(readFile(byHand / "Docs/c"), "a different third");
  // A journal whose lines climb out of home and out of the batch, and one cut short.
  const fs::path journaled = quarantine.root / "2026-01-02T000000";
  writeFile(journaled / "Docs/back", "comes back");
  writeFile(journaled / "Docs/out", "would leave home");
  for (MoveJournal journal = MoveJournal::create(DirHandle::open(journaled));
       const JournalEntry& e : {JournalEntry{"Docs/back", "Docs/back", "Docs/.vorlan-partial-1"},
                                {"../victim/new", "Docs/out", ""}, {"Docs/x", "../../../../victim/file", ""}})
    journal.append(e);
  std::ofstream(journaled / ".vorlan-journal", std::ios::app) << R"({"original":"Docs/c","sto)";
  // Lines that can't be trusted leave the whole folder to a person.
  EXPECT_EQ(quarantine.recover("2026-01-02T000000", kNow),
            (RecoverResult{"2026-01-02T000000", RecoverState::leftOver, {}, {"Docs/out", "../../../../victim/file", "Docs/back"}, {}}));
  EXPECT_EQ(readFile(journaled / "Docs/back"), "comes back");
  EXPECT_EQ(readFile(dir / "victim/file"), "must stay");
  EXPECT_EQ(readFile(home / "Docs/c"), "third");
  EXPECT_EQ(readFile(journaled / "Docs/out"), "would leave home");
}

// A tree deeper than the open-file limit (256 by default on the Mac) could not be purged, and a
// careless order (on tmpfs the manifest is listed first) left a folder without a manifest.
TEST(QuarantineRegression, PurgeOfATreeDeeperThanTheOpenFileLimit) {
  const fs::path shm = "/dev/shm/vorlan-regression-" + std::to_string(::getpid());
  struct Gone { fs::path path; ~Gone() { std::error_code ec; fs::remove_all(path, ec); } } gone{shm};
  TempDir fallback;
  const fs::path home = (::access("/dev/shm", W_OK) == 0 && fs::create_directory(shm) ? shm : fallback.path()) / "home";
  fs::path deep = home / "Library/Caches/deep";
  for (int level = 0; level < 100; ++level) deep /= "d";
  writeFile(deep / "leaf", "x");
  const Quarantine quarantine(Quarantine::defaultRoot(home), home);
  const QuarantineBatch batch = quarantine.move({"Library/Caches/deep"}, kNow);
  ASSERT_EQ(batch.items.size(), 1u);
  EXPECT_EQ(signalOfChild([&] {
              const rlimit few{32, 32};
              ::setrlimit(RLIMIT_NOFILE, &few);
              quarantine.purge(batch.id);
            }), 0) << "the purge failed";
  EXPECT_FALSE(fs::exists(quarantine.root / batch.id));
}

}  // namespace
}  // namespace vorlan::test

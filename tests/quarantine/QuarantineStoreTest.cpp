// The checks that keep every path inside the home folder and the batch, batch ids, moving into
// the quarantine, the manifest, restoring and expiry, all on a temporary home.
#include <fmt/format.h>

#include <stop_token>

#include "platform/UsageMeasurement.hpp"
#include "platform/AtomicFile.hpp"
#include "quarantine/QuarantineFixture.hpp"

namespace vorlan::test {
namespace {

TEST_F(QuarantineTest, EveryPathStaysInsideHomeAndBatch) {
  // Refused as outsideHome, outsideBatch, outsideQuarantine; the restore rows go into a crafted
  // manifest: a path it stores (From) or one it restores to (To).
  enum Check { inHome, inBatch, batchId, restoreFrom, restoreTo };
  struct Case { Check check; std::string path, accepted; };  // accepted empty: refused
  const Case cases[] = {
      {inHome, "Docs/x", "Docs/x"}, {inHome, "Library/../Docs/x", "Docs/x"}, {inHome, "./Docs//x/", "Docs/x"},
      {inHome, "outlink", "outlink"},  // a link leading out is an item of its own
      {inHome, "in/x", "in/x"},        // through a link that stays at home
      {inHome, "/etc/passwd", ""}, {inHome, (home / "Docs/x").string(), ""}, {inHome, "..", ""},
      {inHome, "a/../../b", ""}, {inHome, "Docs/..", ""}, {inHome, ".", ""}, {inHome, "", ""},
      {inHome, "outlink/x", ""}, {inHome, "outlink/deeper/x", ""}, {inHome, std::string("Docs/a\0/../../../etc", 20), ""},
      {inBatch, "Library/x", "Library/x"}, {inBatch, "/Library/x", "Library/x"}, {inBatch, "linkout", "linkout"},
      {inBatch, "../other/x", ""}, {inBatch, "Library/../../other/x", ""}, {inBatch, "", ""}, {inBatch, "linkout/file", ""},
      {batchId, "2026-03-14T091502", "2026-03-14T091502"}, {batchId, "a/b", ""}, {batchId, "..", ""},
      {batchId, ".", ""}, {batchId, "", ""}, {batchId, "../quarantine", ""},
      {restoreFrom, "../../../../victim/file", ""}, {restoreFrom, "linkout/file", ""}, {restoreFrom, "manifest.json", ""},
      {restoreTo, (dir / "evil").string(), ""}, {restoreTo, "../victim/file2", ""}, {restoreTo, "outlink/evil", ""},
      // Put back into the store, an item went with its batch while reported as restored.
      {restoreTo, ".vorlan/quarantine/2026-03-14T091502/back", ""}, {restoreTo, ".vorlan/quarantine/other/back", ""},
      {restoreTo, "link/back", ""},
  };
  writeFile(dir / "victim/file", "must stay");
  const QuarantineBatch batch = quarantine.move({"Docs/c"}, kNow);
  const fs::path folder = quarantine.root / batch.id;
  fs::create_symlink(dir / "victim", folder / "linkout");
  fs::create_directory_symlink(folder, home / "link");
  fs::create_directory(quarantine.root / "other");
  // Everything in reach, but the manifest each crafted case rewrites.
  auto everything = [&] { return snapshotTree(dir.path(), {"home/.vorlan/quarantine/" + batch.id + "/manifest.json"}); };
  const Tree before = everything();
  const std::string kinds[] = {"outsideHome: ", "outsideBatch: ", "outsideQuarantine: "};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    std::string refusal;
    if (c.check == inHome) {
      refusal = refused([&] { EXPECT_EQ(quarantine.resolveInsideHome(c.path), (HomePath{home / c.accepted, c.accepted})); });
      // One such path refuses the whole batch before anything moves.
      if (c.accepted.empty()) { EXPECT_EQ(refused([&] { quarantine.move({"Docs/a", c.path}, kNow); }), refusal); }
    } else if (c.check == inBatch) {
      refusal = refused([&] { EXPECT_EQ(Quarantine::resolveInsideBatch(folder, c.path), folder / c.accepted); });
    } else if (c.check == batchId) {
      refusal = refused([&] { EXPECT_EQ(quarantine.resolveBatchDir(c.path), quarantine.root / c.accepted); });
      if (c.accepted.empty()) {
        EXPECT_EQ(refused([&] { quarantine.restore(c.path); }), refusal);
        EXPECT_EQ(refused([&] { quarantine.purge(c.path); }), refusal);
        EXPECT_EQ(refused([&] { quarantine.recover(c.path, kNow); }), refusal);
      }
    } else {
      QuarantineBatch crafted = batch;
      crafted.items = {c.check == restoreFrom ? QuarantineItem{"Docs/new", c.path, 1} : QuarantineItem{c.path, "Docs/c", 1}};
      writeFileAtomically(folder / "manifest.json", encodeManifest(crafted));
      EXPECT_EQ(quarantine.restore(batch.id).failed, std::vector{crafted.items[0].original});
      continue;
    }
    EXPECT_EQ(refusal, c.accepted.empty() ? kinds[c.check] + c.path : "");
  }
  EXPECT_EQ(treeDifference(before, everything()), "");
}

TEST_F(QuarantineTest, SameSecondGetsASuffixUntilTheAttemptsRunOut) {
  EXPECT_EQ(quarantine.createBatchDirectory(kNow, 100).id, "2026-03-14T091502");
  // What the quarantine holds may come from private folders.
  EXPECT_EQ(fs::status(quarantine.root).permissions() & fs::perms::all, fs::perms::owner_all);
  EXPECT_EQ(quarantine.createBatchDirectory(kNow, 100).id, "2026-03-14T091502-2");
  for (int n = 3; n <= 100; ++n) fs::create_directory(quarantine.root / fmt::format("2026-03-14T091502-{}", n));
  EXPECT_EQ(refused([&] { quarantine.createBatchDirectory(kNow, 100); }), "batchIDExhausted: 2026-03-14T091502");
  // Fewer than one attempt still makes one.
  EXPECT_EQ(quarantine.createBatchDirectory(kNow + 1, 0).id, "2026-03-14T091503");
  EXPECT_EQ(refused([&] { quarantine.createBatchDirectory(kNow + 1, 0); }), "batchIDExhausted: 2026-03-14T091503");
}

TEST_F(QuarantineTest, MoveAndRestoreGiveBackTheSameTree) {
  const Tree before = homeTree(), outsideBefore = snapshotTree(outside);
  const std::vector<std::string> paths{"Docs/a", "Library/Caches/app", "outlink", "Docs/empty"};
  std::vector<QuarantineItem> items;
  for (const auto& path : paths) items.push_back({path, path, measureItem(home / path)});
  const QuarantineBatch batch = quarantine.move(paths, kNow);
  EXPECT_EQ(batch, (QuarantineBatch{"2026-03-14T091502", kNow, kNow + 604800, items, {}}));
  // Each item lies in the batch under its home-relative path, identical; the link as a link.
  const Tree stored = snapshotTree(quarantine.root / batch.id);
  for (const auto& path : paths) {
    EXPECT_TRUE(stored.contains(path) && stored.at(path) == before.at(path)) << path;
    EXPECT_EQ(treeDifference(subtree(before, path), subtree(stored, path)), "");
  }
  EXPECT_EQ(readFile(quarantine.root / batch.id / "manifest.json"), encodeManifest(batch));
  EXPECT_EQ(quarantine.listBatches(), std::vector{batch});
  EXPECT_EQ(quarantine.restore(batch.id), (RestoreResult{paths, {}, {}}));
  EXPECT_EQ(treeDifference(before, homeTree()), "");
  EXPECT_FALSE(fs::exists(quarantine.root / batch.id));
  EXPECT_EQ(snapshotTree(outside), outsideBefore);
}

TEST(QuarantineManifest, IsPrettyWithSortedKeysAndEveryKeyRequired) {
  const QuarantineBatch batch{"2026-03-14T091502", kNow, kNow + 604800, {{"Library/x", "Library/x", 4096}}, {"gone"}};
  const std::string json =
      "{\n  \"createdEpoch\": 1773479702,\n  \"expiresEpoch\": 1774084502,\n  \"failures\": [\n    \"gone\"\n"
      "  ],\n  \"id\": \"2026-03-14T091502\",\n  \"items\": [\n    {\n      \"bytes\": 4096,\n"
      "      \"original\": \"Library/x\",\n      \"stored\": \"Library/x\"\n    }\n  ]\n}\n";
  EXPECT_EQ(encodeManifest(batch), json);
  EXPECT_EQ(decodeManifest(json), batch);
  // A key taken as missing or zero could make a batch expire at once.
  auto with = [&](std::string from, std::string to) { return std::string(json).replace(json.find(from), from.size(), to); };
  for (const std::string& bad : {with("\"expiresEpoch\": 1774084502,\n", ""), with("1774084502", "\"1774084502\""),
                                 with("1773479702", "1.5"), with("\"id\": \"2026-03-14T091502\"", "\"id\": 7"),
                                 with("\"bytes\": 4096,\n", ""), with("\"stored\"", "\"place\""),
                                 with("\"gone\"", "1"), std::string("[]"), json.substr(0, 40), std::string()})
    EXPECT_THROW(decodeManifest(bad), ManifestDecodingError) << bad;
}

TEST_F(QuarantineTest, MoveLeavesWhatItMustNotTake) {
  writeFile(home / "manifest.json", "the user's own file");
  writeFile(home / "bad\xff\xfe" "name", "not utf-8");
  writeFile(home / "Manifest.json", "the user's too");
  writeFile(home / ".VORLAN-JOURNAL", "and this");
  struct Case { std::string name; std::vector<std::string> paths, stored, failures; bool stop = false; };
  const Case cases[] = {
      {"nothing asked", {}, {}, {}},
      {"a path that is gone", {"Docs/nope", "Docs/c"}, {"Docs/c"}, {"Docs/nope"}},
      {"normalised on the way", {"Library/../Docs/a"}, {"Docs/a"}, {}},
      {"a home file named like the manifest", {"manifest.json"}, {}, {"manifest.json"}},
      // Where case is ignored these are the store's own names, and writing the manifest replaced the user's file.
      {"store names in another case", {"Manifest.json", ".VORLAN-JOURNAL"}, {}, {"Manifest.json", ".VORLAN-JOURNAL"}},
      {"the program's own folder", {".vorlan", ".vorlan/quarantine"}, {}, {".vorlan", ".vorlan/quarantine"}},
      {"a path inside one moved before", {"Docs/sub", "Docs/sub/d"}, {"Docs/sub"}, {"Docs/sub/d"}},
      {"a name JSON can't hold", {"bad\xff\xfe" "name"}, {}, {"bad\xff\xfe" "name"}},
      {"stop requested", {"Docs/b", "Docs/empty"}, {}, {"Docs/b", "Docs/empty"}, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Tree before = homeTree();
    std::stop_source stop;
    if (c.stop) stop.request_stop();
    const QuarantineBatch batch = quarantine.move(c.paths, kNow, stop.get_token());
    std::vector<std::string> stored;
    for (const auto& item : batch.items) stored.push_back(item.stored);
    EXPECT_EQ(stored, c.stored);
    EXPECT_EQ(batch.failures, c.failures);
    // A run that moved nothing leaves no empty batch behind.
    EXPECT_EQ(fs::exists(quarantine.root / batch.id), !c.stored.empty());
    if (!c.stored.empty()) { EXPECT_EQ(quarantine.manifest(batch.id).items, batch.items); }
    EXPECT_EQ(lost(before, quarantine.root / batch.id), "");
  }
}

TEST_F(QuarantineTest, RestoreNeverOverwritesAndCanBeRepeated) {
  const Tree before = homeTree();
  const QuarantineBatch batch = quarantine.move({"Docs/a", "Library/Caches/app", "outlink"}, kNow);
  writeFile(home / "Docs/a", "new file");                 // a file where the folder was
  fs::create_symlink(dir / "nowhere", home / "outlink");  // a dangling link
  fs::remove_all(home / "Library");                       // a parent that vanished comes back
  const std::string taken = "그 자리에 이미 다른 것이 있습니다";
  EXPECT_EQ(quarantine.restore(batch.id),
            (RestoreResult{{"Library/Caches/app"}, {"Docs/a", "outlink"}, {{"Docs/a", taken}, {"outlink", taken}}}));
  EXPECT_EQ(readFile(home / "Docs/a"), "new file");
  EXPECT_EQ(fs::read_symlink(home / "outlink"), dir / "nowhere");
  QuarantineBatch left = batch;
  left.items.erase(left.items.begin() + 1);
  EXPECT_EQ(quarantine.manifest(batch.id), left);
  EXPECT_EQ(lost(before, quarantine.root / batch.id), "");

  fs::remove(home / "Docs/a");
  fs::remove(home / "outlink");
  EXPECT_EQ(quarantine.restore(batch.id), (RestoreResult{{"Docs/a", "outlink"}, {}, {}}));
  EXPECT_FALSE(fs::exists(quarantine.root / batch.id));
  EXPECT_EQ(treeDifference(before, homeTree()), "");
}

TEST_F(QuarantineTest, ExpiryTakesOnlyOverdueBatchesWithTheirOwnManifest) {
  EXPECT_EQ(quarantine.expire(kNow), ExpireResult{});  // no root yet
  // A read-only folder inside, as package caches keep them, goes all the same.
  fs::permissions(home / "Docs/a/deep", fs::perms::owner_read | fs::perms::owner_exec);
  const QuarantineBatch due = quarantine.move({"Docs/a"}, kNow);
  const QuarantineBatch later = quarantine.move({"Docs/empty"}, kNow + 10);
  // Not batches: a folder mid-move, a broken manifest, one that can't be read as a file, one
  // that names another folder, a stray file and a hidden one.
  const fs::path& root = quarantine.root;
  writeFile(root / "mid-move/Docs/precious", "keep me");
  writeFile(root / "broken/manifest.json", "{\"id\": ");
  writeFile(root / "broken/Docs/precious", "keep me too");
  fs::create_directories(root / "manifest-folder/manifest.json");
  writeFile(root / "impostor/manifest.json", encodeManifest({"someone-else", 0, 0, {}, {}}));
  for (const char* name : {"stray", ".hidden"}) writeFile(root / name, "x");
  const Tree others = snapshotTree(root, {due.id, later.id});

  EXPECT_EQ(quarantine.listBatches(), (std::vector{due, later}));
  EXPECT_EQ(quarantine.orphanedFolders(), (std::vector<std::string>{"broken", "impostor", "manifest-folder", "mid-move"}));
  for (const auto& [now, purged] : {std::pair{due.expiresEpoch - 1, std::vector<std::string>{}},
                                    {due.expiresEpoch, {due.id}}, {later.expiresEpoch + 1'000'000'000, {later.id}}})
    EXPECT_EQ(quarantine.expire(now), (ExpireResult{purged, {}, {}})) << now;
  EXPECT_EQ(treeDifference(others, snapshotTree(root)), "");
}

}  // namespace
}  // namespace vorlan::test

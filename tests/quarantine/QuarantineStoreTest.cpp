// Moving into the quarantine, the manifest, restoring, purging, expiry and listing, all on a
// temporary home folder.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>

#include "cleanup/UsageMeasurement.hpp"
#include "platform/AtomicFile.hpp"
#include "quarantine/Quarantine.hpp"
#include "quarantine/TreeSnapshot.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::snapshotTree;
using test::TempDir;
using test::treeDifference;
using test::writeFile;

constexpr int64_t kNow = 1773479702;  // 2026-03-14T091502

class QuarantineStore : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(home / "Documents/project/readme.txt", "hello");
    writeFile(home / "Documents/project/src/main.c", std::string(20000, 'c'));
    fs::create_directories(home / "Documents/project/empty");
    fs::permissions(home / "Documents/project/readme.txt", fs::perms::owner_read | fs::perms::owner_write);
    writeFile(home / "Library/Caches/com.example.app/blob", std::string(70000, 'b'));
    writeFile(outside / "target/keep.txt", "outside");
    fs::create_symlink(outside / "target", home / "outlink");
    fs::create_directories(home / "Documents/empty");
  }

  test::Tree homeTree() const { return snapshotTree(home, {".vorlan"}); }
  fs::path batchFolder(const std::string& id) const { return quarantine.root / id; }

  TempDir dir;
  fs::path home = dir / "home";
  fs::path outside = dir / "outside";
  Quarantine quarantine{Quarantine::defaultRoot(home), home};
};

TEST_F(QuarantineStore, MoveAndRestoreGiveBackTheSameTree) {
  const auto before = homeTree();
  const auto outsideBefore = snapshotTree(outside);
  const std::vector<std::string> paths{"Documents/project", "Library/Caches/com.example.app", "outlink",
                                       "Documents/empty"};
  std::map<std::string, int64_t> measured;
  for (const auto& p : paths) measured[p] = measureItem(home / p);

  const QuarantineBatch batch = quarantine.move(paths, kNow);
  EXPECT_EQ(batch.id, "2026-03-14T091502");
  EXPECT_EQ(batch.createdEpoch, kNow);
  EXPECT_EQ(batch.expiresEpoch, kNow + 604800);
  EXPECT_TRUE(batch.failures.empty());
  ASSERT_EQ(batch.items.size(), paths.size());
  const auto stored = snapshotTree(batchFolder(batch.id));
  for (size_t i = 0; i < paths.size(); ++i) {
    SCOPED_TRACE(paths[i]);
    EXPECT_EQ(batch.items[i].original, paths[i]);
    EXPECT_EQ(batch.items[i].stored, paths[i]);
    EXPECT_EQ(batch.items[i].bytes, measured[paths[i]]);
    EXPECT_FALSE(fs::exists(fs::symlink_status(home / paths[i])));
    // Each item lies in the batch under its home-relative path, identical.
    EXPECT_EQ(stored.at(paths[i]), before.at(paths[i]));
    EXPECT_EQ(treeDifference(test::subtree(before, paths[i]), test::subtree(stored, paths[i])), "");
  }
  // A directory counts its own blocks as well as its contents, allocated, links not followed.
  int64_t allocated = 0;
  for (const auto& path : {batchFolder(batch.id) / "Documents/project"}) {
    struct stat st;
    ASSERT_EQ(::lstat(path.c_str(), &st), 0);
    allocated += int64_t(st.st_blocks) * 512;
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
      ASSERT_EQ(::lstat(entry.path().c_str(), &st), 0);
      allocated += int64_t(st.st_blocks) * 512;
    }
  }
  EXPECT_EQ(batch.items[0].bytes, allocated);
  EXPECT_TRUE(fs::is_symlink(batchFolder(batch.id) / "outlink"));
  EXPECT_EQ(snapshotTree(outside), outsideBefore);

  // The manifest on disk is the batch returned, and the batch is listed.
  EXPECT_EQ(readFile(batchFolder(batch.id) / "manifest.json"), encodeManifest(batch));
  EXPECT_EQ(quarantine.manifest(batch.id), batch);
  EXPECT_EQ(quarantine.listBatches(), std::vector<QuarantineBatch>{batch});
  EXPECT_TRUE(quarantine.orphanedFolders().empty());

  const RestoreResult restored = quarantine.restore(batch.id);
  EXPECT_EQ(restored.restored, paths);
  EXPECT_TRUE(restored.failed.empty());
  EXPECT_EQ(treeDifference(before, homeTree()), "");
  EXPECT_FALSE(fs::exists(batchFolder(batch.id)));
  EXPECT_EQ(snapshotTree(outside), outsideBefore);
}

TEST_F(QuarantineStore, ManifestIsPrettyWithSortedKeys) {
  QuarantineBatch batch{"2026-03-14T091502", kNow, kNow + 604800, {{"Library/Caches/x", "Library/Caches/x", 4096}}, {"gone"}};
  EXPECT_EQ(encodeManifest(batch),
            "{\n"
            "  \"createdEpoch\": 1773479702,\n"
            "  \"expiresEpoch\": 1774084502,\n"
            "  \"failures\": [\n"
            "    \"gone\"\n"
            "  ],\n"
            "  \"id\": \"2026-03-14T091502\",\n"
            "  \"items\": [\n"
            "    {\n"
            "      \"bytes\": 4096,\n"
            "      \"original\": \"Library/Caches/x\",\n"
            "      \"stored\": \"Library/Caches/x\"\n"
            "    }\n"
            "  ]\n"
            "}\n");
  EXPECT_EQ(decodeManifest(encodeManifest(batch)), batch);
}

TEST(QuarantineManifest, EveryKeyIsRequiredWithItsType) {
  const std::string item = R"({"bytes": 1, "original": "a", "stored": "a"})";
  auto doc = [&](std::string fields) { return "{" + fields + "}"; };
  const std::string full = R"("createdEpoch": 1, "expiresEpoch": 2, "failures": [], "id": "x", "items": [)" + item + "]";
  struct Case {
    std::string name;
    std::string json;
    bool decodes;
  };
  const Case cases[] = {
      {"complete", doc(full), true},
      {"unknown keys are ignored", doc(full + R"(, "extra": true)"), true},
      {"no failures", doc(R"("createdEpoch": 1, "expiresEpoch": 2, "id": "x", "items": [])"), false},
      {"no id", doc(R"("createdEpoch": 1, "expiresEpoch": 2, "failures": [], "items": [])"), false},
      {"no createdEpoch", doc(R"("expiresEpoch": 2, "failures": [], "id": "x", "items": [])"), false},
      {"no expiresEpoch", doc(R"("createdEpoch": 1, "failures": [], "id": "x", "items": [])"), false},
      {"no items", doc(R"("createdEpoch": 1, "expiresEpoch": 2, "failures": [], "id": "x")"), false},
      {"item without stored", doc(R"("createdEpoch": 1, "expiresEpoch": 2, "failures": [], "id": "x", "items": [{"bytes": 1, "original": "a"}])"), false},
      {"item without bytes", doc(R"("createdEpoch": 1, "expiresEpoch": 2, "failures": [], "id": "x", "items": [{"original": "a", "stored": "a"}])"), false},
      {"epoch as text", doc(R"("createdEpoch": "1", "expiresEpoch": 2, "failures": [], "id": "x", "items": [])"), false},
      {"epoch with a fraction", doc(R"("createdEpoch": 1.5, "expiresEpoch": 2, "failures": [], "id": "x", "items": [])"), false},
      {"id as number", doc(R"("createdEpoch": 1, "expiresEpoch": 2, "failures": [], "id": 7, "items": [])"), false},
      {"failure not a text", doc(R"("createdEpoch": 1, "expiresEpoch": 2, "failures": [1], "id": "x", "items": [])"), false},
      {"items not a list", doc(R"("createdEpoch": 1, "expiresEpoch": 2, "failures": [], "id": "x", "items": {})"), false},
      {"a list at the top", "[]", false},
      {"cut short", doc(full).substr(0, 40), false},
      {"empty", "", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.decodes)
      EXPECT_NO_THROW(decodeManifest(c.json));
    else
      EXPECT_THROW(decodeManifest(c.json), ManifestDecodingError);
  }
}

TEST_F(QuarantineStore, MoveEdgeCases) {
  writeFile(home / "manifest.json", "the user's own file");
  writeFile(home / "a/b/c", "nested");
  writeFile(home / std::string("bad\xff\xfe" "name"), "not utf-8");
  struct Case {
    std::string name;
    std::vector<std::string> paths;
    std::vector<std::string> moved;
    std::vector<std::string> failures;
  };
  const Case cases[] = {
      {"nothing asked", {}, {}, {}},
      {"a path that is gone", {"Documents/nope", "Documents/empty"}, {"Documents/empty"}, {"Documents/nope"}},
      {"normalised on the way", {"Library/../Documents/project"}, {"Documents/project"}, {}},
      // Would collide with the batch's own manifest.
      {"a home file named like the manifest", {"manifest.json"}, {}, {"manifest.json"}},
      // The quarantine can't swallow itself or a folder holding it.
      {"the program's own folder", {".vorlan", ".vorlan/quarantine"}, {}, {".vorlan", ".vorlan/quarantine"}},
      {"a path inside one moved before", {"a", "a/b"}, {"a"}, {"a/b"}},
      {"a name JSON can't hold", {"bad\xff\xfe" "name"}, {}, {"bad\xff\xfe" "name"}},
  };
  int64_t now = kNow;
  fs::create_directories(quarantine.root);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto before = homeTree();
    const QuarantineBatch batch = quarantine.move(c.paths, ++now);
    std::vector<std::string> moved;
    for (const auto& item : batch.items) moved.push_back(item.original);
    EXPECT_EQ(moved, c.moved);
    EXPECT_EQ(batch.failures, c.failures);
    // The batch is written even when nothing moved. (A name that isn't UTF-8 reads back with a
    // replacement character; it is only a failure's text.)
    const QuarantineBatch written = quarantine.manifest(batch.id);
    EXPECT_EQ(written.items, batch.items);
    EXPECT_EQ(written.failures.size(), batch.failures.size());
    EXPECT_EQ(test::lostFiles(before, home, {batchFolder(batch.id)}), "");
    if (c.name == std::string("a home file named like the manifest")) {
      EXPECT_EQ(readFile(home / "manifest.json"), "the user's own file");
    }
  }
}

TEST_F(QuarantineStore, OnePathOutsideHomeMovesNothingAtAll) {
  const auto before = homeTree();
  for (const std::vector<std::string>& paths : {std::vector<std::string>{"Documents/project", "/etc/hosts"},
                                                 std::vector<std::string>{"Documents/project", "../outside"},
                                                 std::vector<std::string>{"outlink/keep.txt"}}) {
    try {
      quarantine.move(paths, kNow);
      ADD_FAILURE() << "moved " << paths.back();
    } catch (const QuarantineError& e) {
      EXPECT_EQ(e.kind(), QuarantineErrorKind::outsideHome);
      EXPECT_EQ(e.value(), paths.back());
    }
  }
  EXPECT_EQ(treeDifference(before, homeTree()), "");
  EXPECT_TRUE(quarantine.batches().empty());
}

TEST_F(QuarantineStore, StopRequestedLeavesTheRestWhereItIs) {
  std::stop_source stop;
  stop.request_stop();
  const QuarantineBatch batch = quarantine.move({"Documents/project", "Documents/empty"}, kNow, stop.get_token());
  EXPECT_TRUE(batch.items.empty());
  EXPECT_EQ(batch.failures, (std::vector<std::string>{"Documents/project", "Documents/empty"}));
  EXPECT_TRUE(fs::exists(home / "Documents/project/readme.txt"));
}

TEST_F(QuarantineStore, RestoreNeverOverwritesAndCanBeRepeated) {
  const auto before = homeTree();
  const QuarantineBatch batch = quarantine.move({"Documents/project", "Library/Caches/com.example.app", "outlink"}, kNow);
  // Something new stands where two items were: a file, and a dangling link.
  writeFile(home / "Documents/project", "new file");
  fs::create_symlink(dir / "nowhere", home / "outlink");
  // A parent that vanished meanwhile comes back.
  fs::remove_all(home / "Library");

  RestoreResult first = quarantine.restore(batch.id);
  EXPECT_EQ(first.restored, std::vector<std::string>{"Library/Caches/com.example.app"});
  EXPECT_EQ(first.failed, (std::vector<std::string>{"Documents/project", "outlink"}));
  EXPECT_EQ(readFile(home / "Documents/project"), "new file");
  EXPECT_EQ(fs::read_symlink(home / "outlink"), dir / "nowhere");
  QuarantineBatch left = quarantine.manifest(batch.id);
  EXPECT_EQ(left.items, (std::vector<QuarantineItem>{batch.items[0], batch.items[2]}));
  EXPECT_EQ(left.expiresEpoch, batch.expiresEpoch);
  EXPECT_EQ(test::lostFiles(before, home, {batchFolder(batch.id)}), "");

  fs::remove(home / "Documents/project");
  fs::remove(home / "outlink");
  RestoreResult second = quarantine.restore(batch.id);
  EXPECT_EQ(second.restored, (std::vector<std::string>{"Documents/project", "outlink"}));
  EXPECT_TRUE(second.failed.empty());
  EXPECT_FALSE(fs::exists(batchFolder(batch.id)));
  EXPECT_EQ(treeDifference(before, homeTree()), "");
}

TEST_F(QuarantineStore, CraftedManifestsTouchNothingOutside) {
  writeFile(dir / "victim/file", "must stay");
  QuarantineBatch batch = quarantine.move({"Documents/project"}, kNow);
  fs::create_symlink(dir / "victim", batchFolder(batch.id) / "linkout");
  const auto victimBefore = snapshotTree(dir / "victim");
  const auto homeBefore = homeTree();
  const std::vector<QuarantineItem> crafted{
      {"x", "../../../victim/file", 1},              // stored climbs out of the batch
      {"x2", "linkout/file", 1},                     // stored runs through a link out of the batch
      {"/tmp/evil", "Documents/project", 1},         // original absolute
      {"../victim/file2", "Documents/project", 1},   // original climbs out of home
      {"outlink/evil", "Documents/project", 1},      // original runs through a link out of home
      {"stolen-manifest", "manifest.json", 1},       // the batch's own file
  };
  batch.items.insert(batch.items.begin(), crafted.begin(), crafted.end());
  writeFileAtomically(batchFolder(batch.id) / "manifest.json", encodeManifest(batch));

  RestoreResult result = quarantine.restore(batch.id);
  EXPECT_EQ(result.restored, std::vector<std::string>{"Documents/project"});
  std::vector<std::string> refused;
  for (const auto& item : crafted) refused.push_back(item.original);
  EXPECT_EQ(result.failed, refused);
  EXPECT_EQ(snapshotTree(dir / "victim"), victimBefore);
  EXPECT_FALSE(fs::exists(home / "stolen-manifest"));
  EXPECT_FALSE(fs::exists(outside / "evil"));
  EXPECT_EQ(quarantine.manifest(batch.id).items, crafted);
  EXPECT_EQ(treeDifference(homeBefore, homeTree()).find("missing"), std::string::npos);
}

TEST_F(QuarantineStore, UnknownAndBadIdsAreRefused) {
  struct Case {
    std::string id;
    QuarantineErrorKind kind;
  };
  fs::create_directories(quarantine.root);
  const Case cases[] = {
      {"2020-01-01T000000", QuarantineErrorKind::batchNotFound},
      {"..", QuarantineErrorKind::outsideQuarantine},
      {"a/b", QuarantineErrorKind::outsideQuarantine},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.id);
    for (int op = 0; op < 3; ++op) {
      try {
        if (op == 0) quarantine.restore(c.id);
        if (op == 1) quarantine.purge(c.id);
        if (op == 2) quarantine.manifest(c.id);
        ADD_FAILURE() << "accepted in operation " << op;
      } catch (const QuarantineError& e) {
        EXPECT_EQ(e.kind(), c.kind);
        EXPECT_EQ(e.value(), c.id);
      }
    }
  }
}

TEST_F(QuarantineStore, EmptyBatchIsRemovedByItsRestore) {
  QuarantineBatch batch = quarantine.move({}, kNow);
  EXPECT_EQ(quarantine.restore(batch.id), RestoreResult{});
  EXPECT_FALSE(fs::exists(batchFolder(batch.id)));
}

TEST_F(QuarantineStore, PurgeRemovesReadOnlyTreesWhole) {
  // Read-only folders inside what moved, as package caches keep them.
  writeFile(home / "cache/pkg/inner/file", "x");
  fs::permissions(home / "cache/pkg/inner", fs::perms::owner_read | fs::perms::owner_exec);
  fs::permissions(home / "cache/pkg", fs::perms::owner_read | fs::perms::owner_exec);
  QuarantineBatch batch = quarantine.move({"cache"}, kNow);
  ASSERT_EQ(batch.items.size(), 1u);
  quarantine.purge(batch.id);
  EXPECT_FALSE(fs::exists(batchFolder(batch.id)));
  EXPECT_THROW(quarantine.purge(batch.id), QuarantineError);
}

TEST_F(QuarantineStore, ExpiryTakesOnlyOverdueBatchesWithTheirOwnManifest) {
  const QuarantineBatch due = quarantine.move({"Documents/project"}, kNow);
  const QuarantineBatch later = quarantine.move({"Documents/empty"}, kNow + 10);
  // Not batches: a folder mid-move (items, no manifest), a corrupt manifest, a manifest of
  // another folder, a stray file, a hidden name.
  writeFile(quarantine.root / "2000-01-01T000000/Documents/precious", "keep me");
  writeFile(quarantine.root / "2000-01-02T000000/manifest.json", "{\"id\": ");
  writeFile(quarantine.root / "2000-01-02T000000/Documents/precious", "keep me too");
  QuarantineBatch impostor = due;
  impostor.id = "2000-01-03T000000";
  fs::create_directories(quarantine.root / "2000-01-04T000000");
  writeFile(quarantine.root / "2000-01-04T000000/manifest.json", encodeManifest(impostor));
  writeFile(quarantine.root / "stray", "x");
  writeFile(quarantine.root / ".DS_Store", "x");

  EXPECT_EQ(quarantine.batches(), (std::vector<std::string>{"2000-01-01T000000", "2000-01-02T000000",
                                                            "2000-01-04T000000", due.id, later.id, "stray"}));
  EXPECT_EQ(quarantine.listBatches(), (std::vector<QuarantineBatch>{due, later}));
  EXPECT_EQ(quarantine.orphanedFolders(),
            (std::vector<std::string>{"2000-01-01T000000", "2000-01-02T000000", "2000-01-04T000000"}));
  EXPECT_THROW(quarantine.manifest("stray"), QuarantineError);

  struct Step {
    int64_t now;
    std::vector<std::string> purged;
  };
  const Step steps[] = {
      {due.expiresEpoch - 1, {}},
      {due.expiresEpoch, {due.id}},
      {later.expiresEpoch + 1'000'000'000, {later.id}},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.now);
    EXPECT_EQ(quarantine.expire(step.now), (ExpireResult{step.purged, {}}));
  }
  EXPECT_EQ(readFile(quarantine.root / "2000-01-01T000000/Documents/precious"), "keep me");
  EXPECT_EQ(readFile(quarantine.root / "2000-01-02T000000/Documents/precious"), "keep me too");
  EXPECT_TRUE(fs::exists(quarantine.root / "2000-01-04T000000/manifest.json"));
  EXPECT_TRUE(fs::exists(quarantine.root / "stray"));
}

TEST(QuarantineWithoutRoot, ListsAndExpiresNothing) {
  TempDir dir;
  Quarantine quarantine(dir / "no-root", dir.path());
  EXPECT_TRUE(quarantine.batches().empty());
  EXPECT_TRUE(quarantine.listBatches().empty());
  EXPECT_EQ(quarantine.expire(kNow), ExpireResult{});
}

}  // namespace
}  // namespace vorlan

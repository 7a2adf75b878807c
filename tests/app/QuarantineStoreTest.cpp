#include <gtest/gtest.h>

#include <QSignalSpy>

#include "app/FlowTestSupport.hpp"
#include "flow/QuarantineStore.hpp"
#include "quarantine/Quarantine.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

using test::ScriptedHttp;
using test::waitUntil;
constexpr int64_t kNow = 1'790'000'000;
constexpr int64_t kDay = 86'400;

struct StoreWorld {
  vorlan::test::TempDir home;
  ScriptedHttp http;
  Quarantine quarantine{Quarantine::defaultRoot(home.path()), home.path()};

  QuarantineBatch moveFolders(std::vector<std::string> paths, int64_t when) {
    for (const auto& path : paths) vorlan::test::writeFile(home / path / "f.txt", "data of " + path);
    return quarantine.move(paths, when);
  }
  AppEnvironment env(int64_t now = kNow) { return test::testEnvironment(home.path(), http, now); }
};

void finish(QuarantineStore& store, const std::function<void()>& start) {
  QSignalSpy finished(&store, &QuarantineStore::workFinished);
  start();
  ASSERT_TRUE(waitUntil([&] { return finished.count() > 0; }));
}

TEST(QuarantineStore, SweepPurgesOnlyOverdueBatchesAndASecondSweepWaits) {
  StoreWorld w;
  const auto old = w.moveFolders({".cache/old"}, kNow - 8 * kDay);
  const auto fresh = w.moveFolders({".cache/fresh"}, kNow - 1 * kDay);
  QuarantineStore store(w.env());
  QSignalSpy finished(&store, &QuarantineStore::workFinished);
  store.expireOverdue();
  store.expireOverdue();  // while the first runs: nothing more happens
  ASSERT_TRUE(waitUntil([&] { return !store.sweepInFlight(); }));
  QCoreApplication::processEvents();
  EXPECT_EQ(finished.count(), 1);
  ASSERT_EQ(store.batches().size(), 1u);
  EXPECT_EQ(store.batches()[0].id, fresh.id);
  EXPECT_FALSE(std::filesystem::exists(w.home / ".vorlan/quarantine" / old.id));
  EXPECT_EQ(store.expireNotice(), std::nullopt);
}

TEST(QuarantineStore, RestoreNeverOverwritesAndSaysWhatStayed) {
  StoreWorld w;
  const auto batch = w.moveFolders({".cache/a", ".cache/b"}, kNow);
  vorlan::test::writeFile(w.home / ".cache/b/new.txt", "made since");
  QuarantineStore store(w.env());
  store.reload();
  finish(store, [&] { store.restore(batch); });
  EXPECT_EQ(vorlan::test::readFile(w.home / ".cache/a/f.txt"), "data of .cache/a");
  EXPECT_EQ(vorlan::test::readFile(w.home / ".cache/b/new.txt"), "made since");
  EXPECT_FALSE(std::filesystem::exists(w.home / ".cache/b/f.txt"));
  ASSERT_TRUE(store.restoreNotices().contains(batch.id));
  EXPECT_EQ(store.restoreNotices().at(batch.id),
            (RestoreNotice{QStringLiteral("2개 중 1개를 되돌렸습니다 — 나머지는 같은 위치에 새 파일이 생겨 보관함에 남아 있습니다"),
                           {".cache/b"}}));

  // Once the way is clear, a second restore brings the rest and clears the notice.
  std::filesystem::remove_all(w.home / ".cache/b");
  finish(store, [&] { store.restore(store.batches().at(0)); });
  EXPECT_EQ(vorlan::test::readFile(w.home / ".cache/b/f.txt"), "data of .cache/b");
  EXPECT_TRUE(store.restoreNotices().empty());
  EXPECT_TRUE(store.batches().empty());

  // A batch that is gone fails as a whole: a message and no paths.
  finish(store, [&] { store.restore(batch); });
  ASSERT_TRUE(store.restoreNotices().contains(batch.id));
  EXPECT_TRUE(store.restoreNotices().at(batch.id).message.startsWith(QStringLiteral("되돌리지 못했습니다: ")));
  EXPECT_TRUE(store.restoreNotices().at(batch.id).failed.empty());
}

TEST(QuarantineStore, EmptyingRemovesEveryBatchAndCountsTheFreedSpace) {
  StoreWorld w;
  w.moveFolders({".cache/a"}, kNow);
  w.moveFolders({".cache/b"}, kNow + 1);
  QuarantineStore store(w.env());
  store.reload();
  ASSERT_EQ(store.batches().size(), 2u);
  finish(store, [&] { store.purgeAll(); });
  EXPECT_TRUE(store.batches().empty());
  EXPECT_FALSE(store.isPurging());
  EXPECT_GT(store.freedBytes(), 0);
  EXPECT_TRUE(std::filesystem::is_empty(w.home / ".vorlan/quarantine"));
}

}  // namespace
}  // namespace vorlan::app

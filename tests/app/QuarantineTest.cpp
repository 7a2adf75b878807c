#include <QSignalSpy>

#include "app/AppTestSupport.hpp"
#include "flow/QuarantineStore.hpp"
#include "quarantine/Quarantine.hpp"
#include "screens/QuarantineView.hpp"

namespace vorlan::app {
namespace {

namespace fs = std::filesystem;
using test::waitUntil;
constexpr int64_t kNow = 1'790'000'000;
constexpr int64_t kDay = 86'400;

// The store on a temporary home and the panel over it; the panel shows only when a test asks.
struct Panel {
  vorlan::test::TempDir home;
  Quarantine quarantine{Quarantine::defaultRoot(home.path()), home.path()};
  QuarantineStore store{test::screenEnvironment(home.path(), {}, {}, kNow)};
  QuarantineView view{store, [] { return kNow; }};

  QuarantineBatch move(std::vector<std::string> paths, int64_t when) {
    for (const auto& path : paths) vorlan::test::writeFile(home / path / "f.txt", "data of " + path);
    return quarantine.move(paths, when);
  }
  // Shows the panel, sweeps as its screen's appearance does, and waits for the store to settle.
  void show() {
    test::showAt(view, {600, 500});
    view.appeared();
    ASSERT_TRUE(waitUntil([&] { return !store.sweepInFlight() && !store.isPurging() && !store.restoringID(); }));
    QApplication::processEvents();
  }
  void finish(const std::function<void()>& start) {
    QSignalSpy finished(&store, &QuarantineStore::workFinished);
    start();
    ASSERT_TRUE(waitUntil([&] { return finished.count() > 0; }));
    QApplication::processEvents();
  }
  void clickRestore(const QuarantineBatch& batch) {
    finish([&] { row(batch)->findChild<QPushButton*>("restoreButton")->click(); });
  }
  QWidget* row(const QuarantineBatch& batch) {
    return view.findChild<QWidget*>(QString::fromStdString("batch-" + batch.id));
  }
  QStringList texts(QWidget* in, const QString& name = {}) {
    QStringList all;
    for (auto* l : in->findChildren<QLabel*>(name)) all << l->text();
    return all;
  }
};

TEST(QuarantineStore, SweepPurgesOnlyOverdueBatchesAndASecondSweepWaits) {
  Panel p;
  const auto old = p.move({".cache/old"}, kNow - 8 * kDay);
  const auto fresh = p.move({".cache/fresh"}, kNow - 1 * kDay);
  QSignalSpy finished(&p.store, &QuarantineStore::workFinished);
  p.store.expireOverdue();
  p.store.expireOverdue();  // while the first runs: nothing more happens
  ASSERT_TRUE(waitUntil([&] { return !p.store.sweepInFlight(); }));
  QCoreApplication::processEvents();
  EXPECT_EQ(finished.count(), 1);
  ASSERT_EQ(p.store.batches().size(), 1u);
  EXPECT_EQ(p.store.batches()[0].id, fresh.id);
  EXPECT_FALSE(fs::exists(p.quarantine.root / old.id));
  EXPECT_EQ(p.store.expireNotice(), std::nullopt);
}

TEST(QuarantineView, ABatchThatGoesWithinTwoDaysSaysSo) {
  const std::pair<int64_t, bool> cases[] = {{2 * kDay, true}, {2 * kDay + 1, false}};
  for (const auto& [expiresIn, soon] : cases) {
    Panel p;
    const auto batch = p.move({".cache/a"}, kNow + expiresIn - 7 * kDay);
    p.show();
    ASSERT_NE(p.row(batch), nullptr) << expiresIn;
    EXPECT_EQ(p.row(batch)->findChild<QLabel*>("expiresSoon") != nullptr, soon) << expiresIn;
    EXPECT_TRUE(p.texts(p.row(batch)).contains("1개 항목"));
  }
}

// A restore never overwrites: what stayed is listed under its batch until a later restore
// brings it. A locked store fails as a whole, listing nothing. The core's own tests check the
// restored trees on disk; here the files checked are the ones a restore must not touch.
TEST(QuarantineView, RestoreNeverOverwritesAndEachBatchSaysWhatStayed) {
  Panel p;
  const auto partial = p.move({".cache/a", ".cache/b"}, kNow);
  const auto whole = p.move({".cache/c"}, kNow + 1);
  vorlan::test::writeFile(p.home / ".cache/b/new.txt", "made since");
  p.show();
  p.clickRestore(partial);
  EXPECT_EQ(vorlan::test::readFile(p.home / ".cache/b/new.txt"), "made since");
  EXPECT_FALSE(fs::exists(p.home / ".cache/b/f.txt"));
  ASSERT_TRUE(p.store.restoreNotices().contains(partial.id));
  const RestoreNotice partly{
      QStringLiteral("2개 중 1개를 되돌렸습니다 — 나머지는 같은 위치에 새 파일이 생겨 보관함에 남아 있습니다"),
      {".cache/b"}};
  EXPECT_EQ(p.store.restoreNotices().at(partial.id), partly);
  {
    test::HeldStoreLock busy(p.home.path());  // another run holds the store
    p.clickRestore(whole);
  }
  EXPECT_FALSE(fs::exists(p.home / ".cache/c"));

  struct Case { const QuarantineBatch& batch; std::optional<QString> message; QStringList failed; };
  for (const Case& c : {Case{partial, partly.message, {"~/.cache/b"}}, Case{whole, std::nullopt, {}}}) {
    QWidget* row = p.row(c.batch);
    ASSERT_NE(row, nullptr) << c.batch.id;
    const QStringList notice = p.texts(row, "restoreNotice");
    ASSERT_EQ(notice.size(), 1) << c.batch.id;
    if (c.message) EXPECT_EQ(notice.front(), *c.message);
    else EXPECT_TRUE(notice.front().startsWith("되돌리지 못했습니다: ")) << notice.front().toStdString();
    EXPECT_EQ(p.texts(row, "failedPath"), c.failed) << c.batch.id;
  }

  // Once the way is clear, a second restore brings the rest and clears its notice.
  fs::remove_all(p.home / ".cache/b");
  // A copy: the restore replaces the store's list of batches.
  std::optional<QuarantineBatch> again;
  for (const auto& listed : p.store.batches())
    if (listed.id == partial.id) again = listed;
  ASSERT_TRUE(again);
  p.finish([&] { p.store.restore(*again); });
  EXPECT_FALSE(p.store.restoreNotices().contains(partial.id));
  ASSERT_EQ(p.store.batches().size(), 1u);
  EXPECT_EQ(p.store.batches()[0].id, whole.id);
}

TEST(QuarantineView, EmptyingRemovesEveryBatchAndLeavesTheAccountWithoutADate) {
  Panel p;
  p.show();
  EXPECT_FALSE(p.view.isVisible()) << "no batches and nothing freed: nothing to show";
  p.move({".cache/a"}, kNow);
  p.move({".cache/b"}, kNow + 1);
  p.store.reload();
  QApplication::processEvents();
  ASSERT_TRUE(p.view.isVisible());
  ASSERT_EQ(p.texts(&p.view).filter("개 항목").size(), 2);
  p.finish([&] { p.view.findChild<QPushButton*>("emptyButton")->click(); });
  EXPECT_TRUE(p.store.batches().empty());
  EXPECT_GT(p.store.freedBytes(), 0);
  EXPECT_TRUE(fs::is_empty(p.quarantine.root));
  QWidget* ledger = p.view.findChild<QWidget*>("ledger");
  ASSERT_NE(ledger, nullptr);
  const QStringList lines = p.texts(ledger);
  ASSERT_EQ(lines.size(), 2) << lines.join("|").toStdString();
  EXPECT_TRUE(lines[0].startsWith("치운 파일 ") && lines[0].contains(" 0.0GB ")) << lines[0].toStdString();
  EXPECT_TRUE(lines[1].startsWith("비운 공간 ")) << lines[1].toStdString();
  EXPECT_EQ(p.view.findChild<QPushButton*>("emptyButton"), nullptr);
}

}  // namespace
}  // namespace vorlan::app

#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include "app/FlowTestSupport.hpp"
#include "app/ScreenTestSupport.hpp"
#include "flow/QuarantineStore.hpp"
#include "quarantine/Quarantine.hpp"
#include "screens/QuarantineView.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

using test::waitUntil;
constexpr int64_t kNow = 1'790'000'000;
constexpr int64_t kDay = 86'400;

struct Panel {
  vorlan::test::TempDir home;
  test::ScriptedHttp http;
  Quarantine quarantine{Quarantine::defaultRoot(home.path()), home.path()};
  QuarantineStore store{test::testEnvironment(home.path(), http, kNow)};
  QuarantineView view{store, [] { return kNow; }};

  QuarantineBatch move(std::vector<std::string> paths, int64_t when) {
    for (const auto& path : paths) vorlan::test::writeFile(home / path / "f.txt", path);
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
  QWidget* row(const QuarantineBatch& batch) {
    return view.findChild<QWidget*>(QString::fromStdString("batch-" + batch.id));
  }
  QStringList texts(QWidget* in, const QString& name = {}) {
    QStringList all;
    for (auto* l : in->findChildren<QLabel*>(name)) all << l->text();
    return all;
  }
};

TEST(QuarantineView, ABatchThatGoesWithinTwoDaysSaysSo) {
  struct Case {
    int64_t expiresIn;
    bool soon;
  };
  for (const Case c : {Case{2 * kDay, true}, Case{2 * kDay + 1, false}, Case{kDay, true}}) {
    Panel p;
    const auto batch = p.move({".cache/a"}, kNow + c.expiresIn - 7 * kDay);
    p.show();
    ASSERT_NE(p.row(batch), nullptr) << c.expiresIn;
    EXPECT_EQ(p.row(batch)->findChild<QLabel*>("expiresSoon") != nullptr, c.soon) << c.expiresIn;
    EXPECT_TRUE(p.texts(p.row(batch)).contains("1개 항목"));
  }
}

TEST(QuarantineView, RestoreNoticesListWhatStayedAndAWholeFailureListsNothing) {
  Panel p;
  const auto partial = p.move({".cache/a", ".cache/b"}, kNow);
  const auto whole = p.move({".cache/c"}, kNow + 1);
  vorlan::test::writeFile(p.home / ".cache/b/new.txt", "made since");
  p.show();
  p.finish([&] { p.row(partial)->findChild<QPushButton*>("restoreButton")->click(); });
  {
    // Another run holds the store: the second restore fails whole.
    test::HeldStoreLock busy(p.home.path());
    p.finish([&] { p.row(whole)->findChild<QPushButton*>("restoreButton")->click(); });
  }

  struct Case {
    const QuarantineBatch& batch;
    const char* messageStart;
    QStringList failed;
  };
  for (const Case& c : {Case{partial, "2개 중 1개를 되돌렸습니다", {"~/.cache/b"}},
                        Case{whole, "되돌리지 못했습니다: ", {}}}) {
    QWidget* row = p.row(c.batch);
    ASSERT_NE(row, nullptr) << c.messageStart;
    ASSERT_EQ(p.texts(row, "restoreNotice").size(), 1) << c.messageStart;
    EXPECT_TRUE(p.texts(row, "restoreNotice").front().startsWith(QString::fromUtf8(c.messageStart)))
        << p.texts(row, "restoreNotice").front().toStdString();
    EXPECT_EQ(p.texts(row, "failedPath"), c.failed) << c.messageStart;
  }
}

TEST(QuarantineView, EmptyingEverythingLeavesTheAccountWithoutADate) {
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

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QWheelEvent>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include "app/FlowTestSupport.hpp"
#include "app/ScreenTestSupport.hpp"
#include "network/Explain.hpp"
#include "screens/CleanupPlanView.hpp"
#include "screens/CleanupRowDelegate.hpp"
#include "screens/CleanupRowModel.hpp"
#include "screens/ExplainCard.hpp"
#include "screens/ExplainRequestSheet.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

using test::waitUntil;
constexpr int64_t MB = 1'000'000;

struct PlanScreen {
  vorlan::test::TempDir home;
  std::unique_ptr<AppFlow> flow;
  std::unique_ptr<CleanupPlanView> view;

  void open() {
    flow = std::make_unique<AppFlow>(test::screenEnvironment(home.path()));
    view = std::make_unique<CleanupPlanView>(*flow);
    test::showAt(*view, {800, 600});
    ASSERT_TRUE(waitUntil([&] { return !flow->cleanup().isLoading(); }));
  }
  QString text(const char* name) { return view->findChild<QLabel*>(name)->text(); }
  QPushButton* button(const char* name) { return view->findChild<QPushButton*>(name); }
  int rowOf(const std::string& path) {
    for (int r = 0; r < view->rows()->rowCount(); ++r)
      if (view->rows()->item(r).path == path) return r;
    return -1;
  }
  void clickToggle(int row) {
    CleanupRowList* list = view->rowList();
    const QRect at = list->visualRect(view->rows()->index(row));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, CleanupRowDelegate::toggleRect(at).center());
  }
};

CleanupItem planRow(std::string name, int64_t bytes, CleanupVerdict verdict, bool immediate = false,
                    std::vector<std::string> deletePaths = {}) {
  CleanupItem item;
  item.path = "Library/Caches/" + name;
  item.name = std::move(name);
  item.bytes = bytes;
  item.verdict = verdict;
  item.checked = isCheckedByDefault(verdict);
  item.purgeImmediately = immediate;
  item.deletePaths = std::move(deletePaths);
  item.reason = "이유";
  item.consequence = "결과";
  return item;
}

TEST(CleanupPlanView, TicksDriveTheFiguresAndOnlyExecutableRowsMove) {
  PlanScreen s;
  s.open();
  s.flow->cleanup().showPlan({
      planRow("held", 2'000 * MB, CleanupVerdict::orphan),
      planRow("now", 1'000 * MB, CleanupVerdict::regenerable, true),
      planRow("kept", 3'000 * MB, CleanupVerdict::keep),
      planRow("narrow", 900 * MB, CleanupVerdict::needsReview, false, {"Library/Caches/narrow/sub"}),
      planRow("running", 800 * MB, CleanupVerdict::inUse),
      planRow("small", 49 * MB, CleanupVerdict::orphan),
  });
  EXPECT_EQ(s.flow->cleanup().items().size(), 6u);
  EXPECT_EQ(s.view->rows()->rowCount(), 5) << "below 50 MB a row is not shown";
  EXPECT_EQ(s.rowOf("Library/Caches/small"), -1);
  EXPECT_FALSE(s.flow->cleanup().checked().contains("Library/Caches/small"));

  // What each row says and whether its toggle moves.
  struct Words {
    const char* path;
    bool canToggle;
    const char* consequence;
    bool accent;
  };
  for (const Words& w : {Words{"Library/Caches/held", true, "지우면 · 결과", false},
                         Words{"Library/Caches/kept", false, "결과", false},
                         Words{"Library/Caches/narrow", false, "지우면 · 결과", true},
                         Words{"Library/Caches/running", true, "결과", false}}) {
    const QModelIndex at = s.view->rows()->index(s.rowOf(w.path));
    EXPECT_EQ(at.data(CleanupRowModel::canToggleRole).toBool(), w.canToggle) << w.path;
    EXPECT_EQ(at.data(CleanupRowModel::consequenceRole).toString(), QString::fromUtf8(w.consequence)) << w.path;
    EXPECT_EQ(at.data(CleanupRowModel::consequenceAccentRole).toBool(), w.accent) << w.path;
    EXPECT_EQ(at.data(CleanupRowModel::pathRole).toString(), "~/" + QString::fromUtf8(w.path));
  }

  // The wheel over the rows scrolls the column around them (once the layout has settled).
  for (int i = 0; i < 5; ++i) QApplication::processEvents();
  auto* bar = s.view->findChild<QScrollArea*>()->verticalScrollBar();
  ASSERT_GT(bar->maximum(), 0);
  const QPoint inRows = s.view->rowList()->viewport()->rect().center();
  QWheelEvent wheel(inRows, s.view->rowList()->viewport()->mapToGlobal(inRows), {}, {0, -120},
                    Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
  QApplication::sendEvent(s.view->rowList()->viewport(), &wheel);
  EXPECT_GT(bar->value(), 0);

  // Each click: the figures follow at once, and only the clicked row is repainted.
  struct Click {
    const char* path;
    bool moves;  // the row's tick changes
    const char* button;
    const char* now;
    const char* held;
    bool enabled;
  };
  const Click clicks[] = {
      {nullptr, false, "선택한 3.0GB 삭제", "지금 바로 확보 1.0GB", "7일 뒤 확보 2.0GB — 그때까지 되돌릴 수 있음", true},
      {"Library/Caches/held", true, "선택한 1.0GB 삭제", "지금 바로 확보 1.0GB", "7일 뒤 확보 0.0GB — 그때까지 되돌릴 수 있음", true},
      {"Library/Caches/now", true, "선택한 0.0GB 삭제", "지금 바로 확보 0.0GB", "7일 뒤 확보 0.0GB — 그때까지 되돌릴 수 있음", false},
      {"Library/Caches/kept", false, "선택한 0.0GB 삭제", "지금 바로 확보 0.0GB", "7일 뒤 확보 0.0GB — 그때까지 되돌릴 수 있음", false},
      {"Library/Caches/narrow", false, "선택한 0.0GB 삭제", "지금 바로 확보 0.0GB", "7일 뒤 확보 0.0GB — 그때까지 되돌릴 수 있음", false},
      {"Library/Caches/running", true, "선택한 0.8GB 삭제", "지금 바로 확보 0.0GB", "7일 뒤 확보 0.8GB — 그때까지 되돌릴 수 있음", true},
  };
  for (const Click& c : clicks) {
    QSignalSpy changed(s.view->rows(), &QAbstractItemModel::dataChanged);
    QSignalSpy reset(s.view->rows(), &QAbstractItemModel::modelReset);
    if (c.path) s.clickToggle(s.rowOf(c.path));
    const std::string at = c.path ? c.path : "start";
    EXPECT_EQ(s.button("deleteButton")->text(), QString::fromUtf8(c.button)) << at;
    EXPECT_EQ(s.button("deleteButton")->isEnabled(), c.enabled) << at;
    EXPECT_EQ(s.text("immediateFigure"), QString::fromUtf8(c.now)) << at;
    EXPECT_EQ(s.text("heldFigure"), QString::fromUtf8(c.held)) << at;
    EXPECT_EQ(reset.count(), 0) << at;
    ASSERT_EQ(changed.count(), c.moves ? 1 : 0) << at;
    if (c.moves) {
      EXPECT_EQ(changed.front().front().value<QModelIndex>().row(), s.rowOf(c.path)) << at;
    }
  }
}

TEST(CleanupPlanView, DeletingMovesTheTickedFoldersIntoABatchShownAbove) {
  PlanScreen s;
  vorlan::test::allocateFile(s.home / "Library/Caches/com.gone.app/blob", 70 * MB);
  vorlan::test::writeFile(s.home / "Library/Caches/com.gone.app/keep.txt", "held");
  vorlan::test::allocateFile(s.home / "Library/Caches/com.other.app/blob", 60 * MB);
  vorlan::test::allocateFile(s.home / "Library/Caches/com.small.app/blob", 10 * MB);
  s.open();
  CleanupFlow& cleanup = s.flow->cleanup();
  ASSERT_EQ(s.view->rows()->rowCount(), 2);
  ASSERT_EQ(cleanup.items().size(), 3u);
  ASSERT_TRUE(cleanup.checked().contains("Library/Caches/com.gone.app"));
  if (cleanup.checked().contains("Library/Caches/com.other.app"))
    s.clickToggle(s.rowOf("Library/Caches/com.other.app"));
  EXPECT_EQ(s.view->findChild<QWidget*>("ledger"), nullptr);

  // The result can only come back through the event loop: the button shows the wait first.
  s.button("deleteButton")->click();
  EXPECT_EQ(s.button("deleteButton")->text(), "삭제하는 중…");
  EXPECT_FALSE(s.button("deleteButton")->isEnabled());
  ASSERT_TRUE(waitUntil([&] { return !cleanup.isExecuting(); }));
  ASSERT_TRUE(waitUntil([&] { return !s.flow->quarantineStore().batches().empty(); }));
  QApplication::processEvents();

  EXPECT_EQ(s.rowOf("Library/Caches/com.gone.app"), -1);
  EXPECT_NE(s.rowOf("Library/Caches/com.other.app"), -1);
  EXPECT_EQ(s.text("heldFigure"), "7일 뒤 확보 0.0GB — 그때까지 되돌릴 수 있음");
  ASSERT_TRUE(cleanup.lastBatch());
  const std::string id = cleanup.lastBatch()->id;
  auto* row = s.view->findChild<QWidget*>(QString::fromStdString("batch-" + id));
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->findChild<QLabel*>("batchPaths")->text(), "Library/Caches/com.gone.app");
  EXPECT_NE(s.view->findChild<QWidget*>("ledger"), nullptr);
  const auto stored = s.home / ".vorlan/quarantine" / id / "Library/Caches/com.gone.app";
  EXPECT_FALSE(std::filesystem::exists(s.home / "Library/Caches/com.gone.app"));
  EXPECT_EQ(vorlan::test::readFile(stored / "keep.txt"), "held");
  EXPECT_EQ(std::filesystem::file_size(stored / "blob"), static_cast<uintmax_t>(70 * MB));
}

TEST(CleanupPlanView, TheExplainOfferShowsWhatGoesOutAndStaysAwayOnceDeclined) {
  PlanScreen s;
  for (const char* name : {"com.vendor.one", "io.tool.two"})
    vorlan::test::allocateFile(s.home / "Library/Caches" / name / "blob", 60 * MB);
  s.open();
  CleanupFlow& cleanup = s.flow->cleanup();
  ASSERT_EQ(cleanup.explainCandidates().size(), 2u);
  ASSERT_NE(s.view->findChild<QWidget*>("explainOffer"), nullptr);

  // "보낼 이름 보기": the exact request in a sheet; "닫기" closes it.
  s.button("previewRequest")->click();
  auto* card = s.view->findChild<ExplainCard*>();
  ASSERT_TRUE(card->showingRequest());
  auto* sheet = s.view->findChild<ExplainRequestSheet*>();
  EXPECT_EQ(sheet->request(), QString::fromStdString(Explain::renderRequest(cleanup.explainCandidates())));
  sheet->findChild<QPushButton*>("closeSheet")->click();
  EXPECT_FALSE(card->showingRequest());

  // No service answers here: the failure is told, and the names stay on offer.
  s.button("sendExplain")->click();
  ASSERT_TRUE(waitUntil([&] { return !cleanup.isExplaining(); }));
  EXPECT_NE(s.view->findChild<QWidget*>("explainOutcome"), nullptr);
  EXPECT_NE(s.view->findChild<QWidget*>("explainOffer"), nullptr);

  s.button("declineExplain")->click();
  for (int pass = 0; pass < 2; ++pass) {  // at once, and after a reload
    EXPECT_EQ(s.view->findChild<QWidget*>("explainOffer"), nullptr) << pass;
    EXPECT_TRUE(cleanup.explainCandidates().empty()) << pass;
    cleanup.load();
    ASSERT_TRUE(waitUntil([&] { return !cleanup.isLoading(); }));
  }
}

}  // namespace
}  // namespace vorlan::app

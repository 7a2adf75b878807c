#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>

#include <algorithm>

#include "app/AppTestSupport.hpp"
#include "flow/CleanupFlow.hpp"
#include "network/Explain.hpp"
#include "screens/CleanupPlanView.hpp"
#include "screens/CleanupRowDelegate.hpp"
#include "screens/CleanupRowModel.hpp"
#include "screens/ExplainCard.hpp"
#include "screens/ExplainRequestSheet.hpp"

namespace vorlan::app {
namespace {

namespace fs = std::filesystem;
using vorlan::test::allocateFile;
using vorlan::test::readFile;
using vorlan::test::writeFile;
using test::waitUntil;
constexpr int64_t kNow = 1'790'000'000;
constexpr int64_t MB = 1'000'000;

// Loads the plan, or carries out `paths` when given, and waits for the worker's answer.
void loadOrExecute(CleanupFlow& flow, std::optional<std::vector<std::string>> paths = std::nullopt) {
  paths ? flow.execute(std::move(*paths)) : flow.load();
  ASSERT_TRUE(waitUntil([&] { return !flow.isLoading() && !flow.isExecuting(); }));
}

const CleanupItem* row(const CleanupFlow& flow, std::string_view path) {
  const auto& items = flow.items();
  const auto it = std::find_if(items.begin(), items.end(), [&](const auto& i) { return i.path == path; });
  return it == items.end() ? nullptr : &*it;
}

// A home with a cache its installed owner rebuilds (purged at once), a folder of an app that
// is gone (held), and a cache folder the dictionary does not know. All three have public
// names the dictionary lacks, so all are explain candidates.
struct CleanupWorld {
  vorlan::test::TempDir home;
  std::set<std::string> running;
  CleanupSeams seams;

  CleanupWorld() {
    allocateFile(home / "Library/Caches/com.vendor.owned/blob", 60 * MB);
    writeFile(home / "Library/Caches/com.vendor.owned/note.txt", "cache");
    allocateFile(home / "Library/Caches/com.gone.app/blob", 70 * MB);
    writeFile(home / "Library/Caches/com.gone.app/keep.txt", "held");
    allocateFile(home / ".cache/io.unknown.tool/blob", 80 * MB);
    seams.runningApps = [this] { return running; };
    seams.installedApps = [](const fs::path&) { return std::set<std::string>{"com.vendor.owned", "io.unknown.tool"}; };
    seams.threads = 2;
  }
  AppEnvironment env(Environment environment = {}, std::optional<HttpResponse> answer = {}) {
    return test::screenEnvironment(home.path(), std::move(answer), std::move(environment), kNow);
  }
  fs::path stored(const QuarantineBatch& batch, const std::string& path) {
    return home / ".vorlan/quarantine" / batch.id / path;
  }
};

TEST(CleanupFlow, AnAppStartedBeforeTheDeleteIsSkippedAndImmediateRowsAreFreed) {
  CleanupWorld w;
  CleanupFlow flow(w.env(), w.seams);
  int64_t freed = 0;
  flow.onFreedImmediately = [&](int64_t bytes) { freed += bytes; };
  loadOrExecute(flow);
  ASSERT_EQ(flow.checked().size(), 3u);

  // The owner of the held folder starts between the plan and the delete.
  w.running = {"com.gone.app"};
  loadOrExecute(flow, std::vector<std::string>(flow.checked().begin(), flow.checked().end()));
  EXPECT_EQ(flow.skippedInUse(), std::vector<std::string>{"Library/Caches/com.gone.app"});
  EXPECT_EQ(flow.executeError(), std::nullopt);
  EXPECT_EQ(readFile(w.home / "Library/Caches/com.gone.app/keep.txt"), "held");
  EXPECT_FALSE(fs::exists(w.home / "Library/Caches/com.vendor.owned"));
  EXPECT_GE(freed, 60 * MB);
  EXPECT_EQ(flow.lastBatch(), std::nullopt) << "the only batch was purged";
}

TEST(CleanupFlow, FailedMoveOrPurgeLosesNothing) {
  for (const bool storeIsAFile : {true, false}) {  // the quarantine cannot be made, or its purge fails
    SCOPED_TRACE(storeIsAFile ? "move fails" : "purge fails");
    CleanupWorld w;
    if (storeIsAFile) writeFile(w.home / ".vorlan", "not a folder");
    else w.seams.purge = [](const Quarantine&, const std::string&) { throw std::runtime_error("busy"); };
    CleanupFlow flow(w.env(), w.seams);
    int64_t freed = 0;
    flow.onFreedImmediately = [&](int64_t bytes) { freed += bytes; };
    loadOrExecute(flow);
    loadOrExecute(flow, {{"Library/Caches/com.vendor.owned"}});
    EXPECT_EQ(freed, 0);
    if (storeIsAFile) {
      ASSERT_TRUE(flow.executeError());
      EXPECT_TRUE(flow.executeError()->startsWith(QStringLiteral("삭제하지 못했습니다: ")));
      EXPECT_EQ(readFile(w.home / "Library/Caches/com.vendor.owned/note.txt"), "cache");
      EXPECT_NE(row(flow, "Library/Caches/com.vendor.owned"), nullptr);
    } else {
      // A purge that fails leaves the batch held, and the panel shows it.
      ASSERT_TRUE(flow.lastBatch());
      EXPECT_EQ(readFile(w.stored(*flow.lastBatch(), "Library/Caches/com.vendor.owned/note.txt")), "cache");
    }
  }
}

TEST(CleanupFlow, ExplanationsChangeWordsNeverTicksAndSurviveReload) {
  CleanupWorld w;
  const Environment endpoint{{"VORLAN_EXPLAIN_ENDPOINT", "https://explain.test"}};
  const HttpResponse answer{200, R"({"entries":{".cache/io.unknown.tool":{"app":"Tool","what":"도구가 받은 모델 파일","grade":"SAFE","regenerates":true}}})"};
  CleanupFlow flow(w.env(endpoint, answer), w.seams);
  loadOrExecute(flow);
  ASSERT_EQ(flow.explainCandidates().size(), 3u);  // the request below names them
  const CleanupItem before = *row(flow, ".cache/io.unknown.tool");
  const auto ticks = flow.checked();

  flow.explainUnknowns();
  ASSERT_TRUE(waitUntil([&] { return !flow.isExplaining(); }));
  EXPECT_EQ(flow.explainOutcome(), (CleanupFlow::ExplainOutcome{true, 1}));
  EXPECT_EQ(flow.explainRequestPreview(),
            QStringLiteral(R"({"paths":[".cache/io.unknown.tool","Library/Caches/com.gone.app","Library/Caches/com.vendor.owned"]})"));
  EXPECT_TRUE(flow.explainCandidates().empty()) << "a sent name is not offered again";
  for (int pass = 0; pass < 2; ++pass) {  // after the answer, and again after a reload
    const CleanupItem* after = row(flow, ".cache/io.unknown.tool");
    ASSERT_NE(after, nullptr);
    EXPECT_EQ(after->what, "도구가 받은 모델 파일") << pass;
    EXPECT_EQ(std::tie(after->verdict, after->checked, after->purgeImmediately),
              std::tie(before.verdict, before.checked, before.purgeImmediately)) << pass;
    EXPECT_EQ(flow.checked(), ticks) << pass;
    loadOrExecute(flow);
  }
}

// The cleanup screen over an AppFlow on a temporary home, shown once its plan has loaded.
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

CleanupItem planRow(const std::string& name, int64_t bytes, CleanupVerdict verdict, bool immediate = false,
                    std::vector<std::string> deletePaths = {}) {
  return {.name = name, .path = "Library/Caches/" + name, .bytes = bytes, .verdict = verdict,
          .checked = isCheckedByDefault(verdict), .reason = "이유", .deletePaths = std::move(deletePaths),
          .what = {}, .consequence = "결과", .purgeImmediately = immediate};
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
  EXPECT_EQ(s.view->rows()->rowCount(), 5) << "below 50 MB a row is not shown";
  EXPECT_EQ(s.rowOf("Library/Caches/small"), -1);

  // What each row says and whether its toggle moves.
  struct Words { const char* path; bool canToggle; const char* consequence; bool accent; };
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
  struct Click { const char* path; bool moves; /* the row's tick changes */ const char *selected, *now, *held; };
  const Click clicks[] = {
      {nullptr, false, "3.0GB", "1.0GB", "2.0GB"},
      {"Library/Caches/held", true, "1.0GB", "1.0GB", "0.0GB"},
      {"Library/Caches/now", true, "0.0GB", "0.0GB", "0.0GB"},
      {"Library/Caches/kept", false, "0.0GB", "0.0GB", "0.0GB"},
      {"Library/Caches/running", true, "0.8GB", "0.0GB", "0.8GB"},
  };
  for (const Click& c : clicks) {
    QSignalSpy changed(s.view->rows(), &QAbstractItemModel::dataChanged);
    QSignalSpy reset(s.view->rows(), &QAbstractItemModel::modelReset);
    if (c.path) s.clickToggle(s.rowOf(c.path));
    SCOPED_TRACE(c.path ? c.path : "start");
    EXPECT_EQ(s.button("deleteButton")->text(), QStringLiteral("선택한 %1 삭제").arg(c.selected));
    EXPECT_EQ(s.button("deleteButton")->isEnabled(), std::string_view(c.selected) != "0.0GB");
    EXPECT_EQ(s.text("immediateFigure"), QStringLiteral("지금 바로 확보 %1").arg(c.now));
    EXPECT_EQ(s.text("heldFigure"), QStringLiteral("7일 뒤 확보 %1 — 그때까지 되돌릴 수 있음").arg(c.held));
    EXPECT_EQ(reset.count(), 0);
    ASSERT_EQ(changed.count(), c.moves ? 1 : 0);
    if (c.moves) {
      EXPECT_EQ(changed.front().front().value<QModelIndex>().row(), s.rowOf(c.path));
    }
  }
}

// The ticked folder's move on disk is checked by Journey; here, what the screen shows and that
// an unticked folder stays.
TEST(CleanupPlanView, DeletingMovesTheTickedFoldersIntoABatchShownAbove) {
  PlanScreen s;
  allocateFile(s.home / "Library/Caches/com.gone.app/blob", 70 * MB);
  allocateFile(s.home / "Library/Caches/com.other.app/blob", 60 * MB);
  s.open();
  CleanupFlow& cleanup = s.flow->cleanup();
  ASSERT_TRUE(cleanup.checked().contains("Library/Caches/com.gone.app"));
  if (cleanup.checked().contains("Library/Caches/com.other.app"))
    s.clickToggle(s.rowOf("Library/Caches/com.other.app"));

  // The result can only come back through the event loop: the button shows the wait first.
  s.button("deleteButton")->click();
  EXPECT_EQ(s.button("deleteButton")->text(), "삭제하는 중…");
  EXPECT_FALSE(s.button("deleteButton")->isEnabled());
  ASSERT_TRUE(waitUntil([&] { return !cleanup.isExecuting(); }));
  ASSERT_TRUE(waitUntil([&] { return !s.flow->quarantineStore().batches().empty(); }));
  QApplication::processEvents();

  EXPECT_EQ(s.rowOf("Library/Caches/com.gone.app"), -1);
  EXPECT_NE(s.rowOf("Library/Caches/com.other.app"), -1);
  EXPECT_TRUE(fs::exists(s.home / "Library/Caches/com.other.app/blob")) << "an unticked row stays";
  ASSERT_TRUE(cleanup.lastBatch());
  auto* row = s.view->findChild<QWidget*>(QString::fromStdString("batch-" + cleanup.lastBatch()->id));
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->findChild<QLabel*>("batchPaths")->text(), "Library/Caches/com.gone.app");
}

TEST(CleanupPlanView, TheExplainOfferShowsWhatGoesOutAndStaysAwayOnceDeclined) {
  PlanScreen s;
  for (const char* name : {"com.vendor.one", "io.tool.two"})
    allocateFile(s.home / "Library/Caches" / name / "blob", 60 * MB);
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
    loadOrExecute(cleanup);
  }
}

}  // namespace
}  // namespace vorlan::app

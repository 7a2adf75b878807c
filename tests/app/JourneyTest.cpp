// The whole journey in one window, through the real widgets, as a user takes it: scan, report,
// the cleanup screen, delete, the batch in the panel, restore, back to the report. The files on
// disk are checked after each step that moves them.
#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>

#include "app/AppTestSupport.hpp"
#include "quarantine/Quarantine.hpp"
#include "scan/ProcessToolRunner.hpp"
#include "screens/ContentView.hpp"
#include "quarantine/TreeSnapshot.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

namespace fs = std::filesystem;
using Step = AppFlow::Step;
using test::waitUntil;

QPushButton* buttonNamed(QWidget& window, const QString& text) {
  for (auto* button : window.findChildren<QPushButton*>())
    if (button->text() == text && button->isVisible()) return button;
  return nullptr;
}

TEST(Journey, ScanReportDeleteRestoreAndBackLosesNothing) {
  vorlan::test::TempDir home;
  const fs::path folder = home / "Library/Caches/com.gone.app";
  vorlan::test::allocateFile(folder / "blob", 70'000'000);
  vorlan::test::writeFile(folder / "deep/notes.txt", "오늘의 메모");
  fs::create_directories(home / ".cache");
  const auto before = vorlan::test::snapshotTree(home.path(), {".vorlan"});

  AppEnvironment env = test::screenEnvironment(home.path());
  env.makeToolRunner = [] { return std::make_unique<ProcessToolRunner>(); };  // the real du
  AppFlow flow(std::move(env));
  // A batch that falls due after the launch's sweep: the cleanup screen's appearance sweeps it.
  ASSERT_TRUE(waitUntil([&] { return !flow.quarantineStore().sweepInFlight(); }));
  vorlan::test::writeFile(home / ".cache/old/f.txt", "old");
  const auto overdue = Quarantine(Quarantine::defaultRoot(home.path()), home.path())
                           .move({".cache/old"}, 1'787'000'000 - 8 * 86'400);
  ContentView window(flow);
  test::showAt(window, {800, 600});
  flow.setStep(Step::systemDataInput);
  QApplication::processEvents();

  buttonNamed(window, "건너뛰고 스캔")->click();
  ASSERT_TRUE(waitUntil([&] { return flow.step() == Step::report; }));
  ASSERT_TRUE(flow.result());
  window.currentScreen()->findChild<QPushButton*>("cleanupButton")->click();
  ASSERT_EQ(flow.step(), Step::cleanupPlan);
  ASSERT_TRUE(waitUntil([&] { return !flow.cleanup().isLoading(); }));
  ASSERT_TRUE(flow.cleanup().checked().contains("Library/Caches/com.gone.app"));
  ASSERT_TRUE(waitUntil([&] { return !flow.quarantineStore().sweepInFlight(); }));
  EXPECT_FALSE(fs::exists(home / ".vorlan/quarantine" / overdue.id));

  window.currentScreen()->findChild<QPushButton*>("deleteButton")->click();
  ASSERT_TRUE(waitUntil([&] { return !flow.cleanup().isExecuting() && flow.cleanup().lastBatch(); }));
  const std::string id = flow.cleanup().lastBatch()->id;
  QWidget* batchRow = nullptr;
  ASSERT_TRUE(waitUntil([&] {
    batchRow = window.currentScreen()->findChild<QWidget*>(QString::fromStdString("batch-" + id));
    return batchRow != nullptr;
  }));
  EXPECT_FALSE(fs::exists(folder));
  const fs::path stored = home / ".vorlan/quarantine" / id / "Library/Caches/com.gone.app";
  EXPECT_EQ(vorlan::test::readFile(stored / "deep/notes.txt"), "오늘의 메모");

  batchRow->findChild<QPushButton*>("restoreButton")->click();
  ASSERT_TRUE(waitUntil([&] { return flow.quarantineStore().batches().empty() && !flow.quarantineStore().restoringID(); }));
  // Back byte for byte: contents, sizes, modes and links of the whole home as it was.
  EXPECT_EQ(vorlan::test::treeDifference(before, vorlan::test::snapshotTree(home.path(), {".vorlan"})), "");

  window.currentScreen()->findChild<QPushButton*>("backButton")->click();
  EXPECT_EQ(flow.step(), Step::report);
  EXPECT_TRUE(flow.result());
}

}  // namespace
}  // namespace vorlan::app

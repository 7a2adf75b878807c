#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

#include "app/ScreenTestSupport.hpp"
#include "screens/ReportView.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

struct ReportScreen {
  vorlan::test::TempDir home;
  AppFlow flow{test::screenEnvironment(home.path())};
  std::unique_ptr<ReportView> view;
  explicit ReportScreen(bool figure) {
    flow.applyDebugReportFixture();
    if (!figure) flow.setSystemDataGB(std::nullopt);
    view = std::make_unique<ReportView>(flow);
    test::showAt(*view, {800, 600});
  }
  bool has(const char* name) { return view->findChild<QWidget*>(name) != nullptr; }
};

TEST(ReportView, LedgerCardWithAFigureSafeTotalWithout) {
  for (bool figure : {true, false}) {
    ReportScreen s(figure);
    EXPECT_EQ(s.has("ledgerCard"), figure);
    EXPECT_EQ(s.has("safeTotalCard"), !figure);
    EXPECT_TRUE(s.has("balanceCard"));
    EXPECT_TRUE(s.has("ledgerPicture"));
    EXPECT_TRUE(s.has("productionBanner"));  // the fixture has one running container
    // 12.3 + 8.9 GB safe and 32.4 + 21.7 + 14.2 + 8.1 + 6.2 + 4.8 GB review; the unknown
    // 0.6 GB folder is listed in its own section.
    if (!figure) {
      QStringList lines;
      for (auto* l : s.view->findChild<QWidget*>("safeTotalCard")->findChildren<QLabel*>()) lines << l->text();
      EXPECT_TRUE(lines.contains("즉시 안전 삭제 가능 21.2GB")) << lines.join("|").toStdString();
      EXPECT_TRUE(lines.contains("확인 후 삭제 후보 87.4GB")) << lines.join("|").toStdString();
    }
    for (const char* section : {"section-SAFE", "section-REVIEW", "section-UNKNOWN", "section-NEVER"})
      EXPECT_TRUE(s.has(section)) << section;
  }
}

TEST(ReportView, CopyPutsTheHintOnTheClipboardAndTheButtonMovesOn) {
  ReportScreen s(true);
  auto* copy = s.view->findChild<QPushButton*>("copyHint");
  ASSERT_NE(copy, nullptr);
  QTest::mouseClick(copy, Qt::LeftButton);
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "삭제 후 앱이 다시 만듦");  // ~/Library/Caches
  EXPECT_EQ(copy->text(), "복사됨");
  QTest::mouseClick(s.view->findChild<QPushButton*>("cleanupButton"), Qt::LeftButton);
  EXPECT_EQ(s.flow.step(), AppFlow::Step::cleanupPlan);
}

TEST(ReportView, SavingTwiceOnOneDayLeavesOneFile) {
  ReportScreen s(true);
  for (int i = 0; i < 2; ++i) QTest::mouseClick(s.view->findChild<QPushButton*>("saveButton"), Qt::LeftButton);
  const auto desktop = s.home / "Desktop";
  ASSERT_TRUE(s.view->savedURL());
  EXPECT_EQ(s.view->savedURL()->parent_path(), desktop);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(desktop), {}), 1);
  EXPECT_EQ(s.view->findChild<QLabel*>("savedLabel")->toolTip(),
            "저장됨: " + QString::fromStdString(s.view->savedURL()->string()));
  EXPECT_EQ(s.view->findChild<QMessageBox*>(), nullptr);
}

TEST(ReportView, SavingIntoADesktopThatIsAFileShowsTheAlert) {
  ReportScreen s(true);
  // A plain file where the folder should be fails for root as well.
  vorlan::test::writeFile(s.home / "Desktop", "");
  QTest::mouseClick(s.view->findChild<QPushButton*>("saveButton"), Qt::LeftButton);
  auto* alert = s.view->findChild<QMessageBox*>();
  ASSERT_NE(alert, nullptr);
  EXPECT_EQ(alert->windowTitle(), "저장 실패");
  EXPECT_FALSE(alert->informativeText().isEmpty());
  EXPECT_FALSE(s.view->savedURL());
  QTest::mouseClick(alert->buttons().front(), Qt::LeftButton);
  EXPECT_FALSE(alert->isVisible());
}

}  // namespace
}  // namespace vorlan::app

#include <QCheckBox>
#include <QClipboard>
#include <QLineEdit>
#include <QMessageBox>
#include <QPalette>
#include <QPointer>
#include <QStackedWidget>
#include <QTest>

#include "app/AppTestSupport.hpp"
#include "screens/ContentView.hpp"
#include "screens/ReportView.hpp"
#include "screens/SystemDataInputView.hpp"
#include "theme/Components.hpp"
#include "theme/Glyph.hpp"

namespace vorlan::app {
namespace {

using Step = AppFlow::Step;

TEST(ContentView, ExactlyOneScreenForEachStepAndTheInputScreenBuiltAnew) {
  vorlan::test::TempDir home;
  AppFlow flow(AppEnvironment{home.path(), {{"VORLAN_UPDATE_ENDPOINT", ""}}, {}, {}, {}, {}, {}});
  ContentView window(flow);
  const std::pair<Step, const char*> cases[] = {
      {Step::welcome, "WelcomeView"},     {Step::fullDiskAccess, "FDAView"},
      {Step::systemDataInput, "SystemDataInputView"}, {Step::scanning, "ScanProgressView"},
      {Step::report, "ReportView"},       {Step::cleanupPlan, "CleanupPlanView"},
  };
  QPointer<QWidget> firstInput;
  for (const auto& [step, screen] : cases) {
    flow.setStep(step);
    test::settle();
    ASSERT_TRUE(window.currentScreen());
    EXPECT_EQ(window.currentScreen()->metaObject()->className(), "vorlan::app::" + std::string(screen));
    EXPECT_EQ(window.findChild<QStackedWidget*>()->count(), 1) << screen;
    if (step == Step::systemDataInput) firstInput = window.currentScreen();
  }
  flow.setStep(Step::systemDataInput);
  test::settle();
  EXPECT_FALSE(firstInput) << "the input screen of before was kept";
}

struct ReportScreen {
  vorlan::test::TempDir home;
  AppFlow flow{test::screenEnvironment(home.path())};
  std::unique_ptr<ReportView> view;
  explicit ReportScreen(bool figure = true) {
    flow.applyDebugReportFixture();
    if (!figure) flow.setSystemDataGB(std::nullopt);
    view = std::make_unique<ReportView>(flow);
    test::showAt(*view, {800, 600});
  }
  bool has(const char* name) { return view->findChild<QWidget*>(name) != nullptr; }
  void click(const char* name) { QTest::mouseClick(view->findChild<QPushButton*>(name), Qt::LeftButton); }
};

TEST(ReportView, LedgerCardWithAFigureSafeTotalWithout) {
  for (bool figure : {true, false}) {
    ReportScreen s(figure);
    EXPECT_EQ(s.has("ledgerCard"), figure);
    EXPECT_EQ(s.has("safeTotalCard"), !figure);
    // The fixture has one running container, and a folder of every grade.
    for (const char* part : {"balanceCard", "ledgerPicture", "productionBanner", "section-SAFE", "section-REVIEW",
                             "section-UNKNOWN", "section-NEVER"})
      EXPECT_TRUE(s.has(part)) << part;
    if (figure) continue;
    // 12.3 + 8.9 GB safe and 32.4 + 21.7 + 14.2 + 8.1 + 6.2 + 4.8 GB review; the unknown
    // 0.6 GB folder is listed in its own section.
    QStringList lines;
    for (auto* l : s.view->findChild<QWidget*>("safeTotalCard")->findChildren<QLabel*>()) lines << l->text();
    EXPECT_TRUE(lines.contains("즉시 안전 삭제 가능 21.2GB")) << lines.join("|").toStdString();
    EXPECT_TRUE(lines.contains("확인 후 삭제 후보 87.4GB")) << lines.join("|").toStdString();
  }
}

TEST(ReportView, CopySaveAndMoveOn) {
  ReportScreen s;
  s.click("copyHint");
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "삭제 후 앱이 다시 만듦");  // ~/Library/Caches
  EXPECT_EQ(s.view->findChild<QPushButton*>("copyHint")->text(), "복사됨");
  s.click("saveButton");
  ASSERT_TRUE(s.view->savedURL());
  EXPECT_EQ(s.view->savedURL()->parent_path(), s.home / "Desktop");
  EXPECT_EQ(s.view->findChild<QLabel*>("savedLabel")->toolTip(),
            "저장됨: " + QString::fromStdString(s.view->savedURL()->string()));
  EXPECT_EQ(s.view->findChild<QMessageBox*>(), nullptr);
  s.click("cleanupButton");
  EXPECT_EQ(s.flow.step(), Step::cleanupPlan);
}

TEST(ReportView, SavingIntoADesktopThatIsAFileShowsTheAlert) {
  ReportScreen s;
  vorlan::test::writeFile(s.home / "Desktop", "");  // a plain file fails for root as well
  s.click("saveButton");
  auto* alert = s.view->findChild<QMessageBox*>();
  ASSERT_NE(alert, nullptr);
  EXPECT_FALSE(alert->informativeText().isEmpty());
  EXPECT_FALSE(s.view->savedURL());
}

// The input screen with the statistics back-end configured or not.
struct InputScreen {
  test::ScopedEnv backEnd;
  vorlan::test::TempDir home;
  AppFlow flow{test::screenEnvironment(home.path())};
  SystemDataInputView view{flow};
  explicit InputScreen(bool configured = false)
      : backEnd({{"VORLAN_TELEMETRY_URL", configured ? std::optional<QByteArray>("http://127.0.0.1:9") : std::nullopt},
                 {"VORLAN_TELEMETRY_ANON_KEY", configured ? std::optional<QByteArray>("key") : std::nullopt}}) {
    test::showAt(view, {800, 600});
  }
  QPushButton* start() { return test::button(&view, "이 수치로 스캔 시작"); }
  QPushButton* skip() { return test::button(&view, "건너뛰고 스캔"); }
};

TEST(SystemDataInputView, ReadsTheFigureWithCommaOrPoint) {
  const std::pair<const char*, std::optional<double>> cases[] = {
      {"113,19", 113.19}, {"113.19", 113.19}, {"0", {}}, {"-3", {}}, {"abc", {}}, {"", {}}, {"1,2,3", {}}};
  for (const auto& [typed, figure] : cases) {
    InputScreen s;
    QTest::keyClicks(s.view.findChild<QLineEdit*>("figure"), typed);
    EXPECT_EQ(s.view.figure(), figure) << typed;
    EXPECT_EQ(s.start()->isEnabled(), figure.has_value()) << typed;
    if (!figure) continue;
    QTest::mouseClick(s.start(), Qt::LeftButton);
    EXPECT_EQ(s.flow.systemDataGB(), figure) << typed;
  }
}

TEST(SystemDataInputView, NoScanWithoutConsentWhenABackEndIsConfigured) {
  struct Case { bool backEnd, consented, buttonsEnabled; };
  for (const Case& c : {Case{false, false, true}, Case{true, false, false}, Case{true, true, true}}) {
    SCOPED_TRACE(testing::Message() << c.backEnd << c.consented);
    InputScreen s(c.backEnd);
    QTest::keyClicks(s.view.findChild<QLineEdit*>("figure"), "50");
    auto* consent = s.view.findChild<QCheckBox*>("consent");
    ASSERT_EQ(consent != nullptr, c.backEnd) << "the toggle shows only with a back-end";
    if (consent && c.consented) QTest::mouseClick(consent, Qt::LeftButton, {}, {4, consent->height() / 2});
    EXPECT_EQ(s.flow.telemetryConsented(), c.consented);
    EXPECT_EQ(s.skip()->isEnabled(), c.buttonsEnabled);
    EXPECT_EQ(s.start()->isEnabled(), c.buttonsEnabled);
  }
}

TEST(SystemDataInputView, ScanFailureAlertShowsTheErrorAndClearsIt) {
  InputScreen s;
  s.flow.setScanError(QStringLiteral("스캔에 실패했습니다: du"));
  auto* alert = s.view.findChild<QMessageBox*>();
  ASSERT_NE(alert, nullptr);
  EXPECT_EQ(alert->informativeText(), "스캔에 실패했습니다: du");
  QTest::mouseClick(alert->buttons().front(), Qt::LeftButton);
  EXPECT_FALSE(s.flow.scanError());
}

}  // namespace

namespace theme {
namespace {

TEST(Theme, FollowsThePlatformsPaletteChanges) {
  install(*qApp);
  VLMinorCard card;  // a widget that exists while the appearance changes
  for (Appearance expected : {Appearance::dark, Appearance::light, Appearance::dark}) {
    const bool dark = expected == Appearance::dark;
    QPalette system;
    system.setColor(QPalette::Window, dark ? Qt::black : Qt::white);
    system.setColor(QPalette::WindowText, dark ? Qt::white : Qt::black);
    QGuiApplication::setPalette(system);
    EXPECT_EQ(appearance(), expected);
    EXPECT_EQ(card.palette().color(QPalette::Window), vlBg.in(expected));
  }
  QGuiApplication::setPalette(QPalette());  // back to the platform's own
  setAppearance(Appearance::light);
}

TEST(Theme, GlyphIsCentredAtTheScaleThatFits) {
  const std::pair<QRectF, QRectF> cases[] = {{{0, 0, 96, 200}, {0, 50, 96, 100}},
                                             {{0, 0, 192, 100}, {48, 0, 96, 100}},
                                             {{10, 20, 48, 50}, {10, 20, 48, 50}}};
  for (const auto& [rect, body] : cases) EXPECT_EQ(VLGlyph::path(rect).boundingRect(), body);
}

}  // namespace
}  // namespace theme
}  // namespace vorlan::app

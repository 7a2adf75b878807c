#include <gtest/gtest.h>

#include <QPointer>
#include <QPushButton>
#include <QStackedWidget>
#include <QTest>

#include "flow/AppFlow.hpp"
#include "network/LocalHttpServer.hpp"
#include "screens/ContentView.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

using Step = AppFlow::Step;

// Runs what was put off, the deletion of the screen before, as the event loop would.
void settle() {
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  QCoreApplication::processEvents();
}

AppEnvironment environment(const test::TempDir& home, const std::string& updateEndpoint = "") {
  return AppEnvironment{home.path(),
                        {{"VORLAN_UPDATE_ENDPOINT", updateEndpoint}, {"VORLAN_TELEMETRY_URL", ""}},
                        {}, {}, {}, {}};
}

TEST(ContentView, ExactlyOneScreenForEachStepAndTheInputScreenBuiltAnew) {
  test::TempDir home;
  AppFlow flow(environment(home));
  ContentView window(flow);
  EXPECT_EQ(window.windowTitle(), "Vorlan");
  EXPECT_EQ(window.minimumSize(), QSize(560, 440));

  const std::pair<Step, const char*> cases[] = {
      {Step::welcome, "vorlan::app::WelcomeView"},
      {Step::fullDiskAccess, "vorlan::app::FDAView"},
      {Step::systemDataInput, "vorlan::app::SystemDataInputView"},
      {Step::scanning, "vorlan::app::ScanProgressView"},
      {Step::report, "vorlan::app::ReportView"},
      {Step::cleanupPlan, "vorlan::app::CleanupPlanView"},
  };
  QPointer<QWidget> firstInput;
  for (const auto& [step, screen] : cases) {
    flow.setStep(step);
    settle();
    ASSERT_TRUE(window.currentScreen());
    EXPECT_STREQ(window.currentScreen()->metaObject()->className(), screen);
    EXPECT_EQ(window.findChild<QStackedWidget*>()->count(), 1) << screen;
    if (step == Step::systemDataInput) firstInput = window.currentScreen();
  }
  flow.setStep(Step::systemDataInput);
  settle();
  EXPECT_FALSE(firstInput) << "the input screen of before was kept";
  EXPECT_STREQ(window.currentScreen()->metaObject()->className(), "vorlan::app::SystemDataInputView");
}

TEST(ContentView, UpdateBannerUntilTheUserClosesIt) {
  test::TempDir home;
  test::LocalHttpServer server([](const test::ReceivedRequest&) {
    return test::LocalHttpServer::response(200, R"({"version":"99.0","url":"https://example.test/v99"})");
  });
  AppFlow flow(environment(home, server.base()));
  ContentView window(flow);
  EXPECT_FALSE(window.findChild<QWidget*>("updateBanner"));
  ASSERT_TRUE(QTest::qWaitFor([&] { return flow.availableUpdate().has_value(); }, 30'000));
  auto* banner = window.findChild<QWidget*>("updateBanner");
  ASSERT_TRUE(banner);

  QPushButton* close = nullptr;
  for (auto* button : banner->findChildren<QPushButton*>())
    if (button->accessibleName() == "닫기") close = button;
  ASSERT_TRUE(close);
  close->click();
  settle();
  EXPECT_TRUE(flow.updateDismissed());
  EXPECT_TRUE(flow.availableUpdate()) << "closing the banner is not forgetting the update";
  EXPECT_FALSE(window.findChild<QWidget*>("updateBanner"));
}

}  // namespace
}  // namespace vorlan::app

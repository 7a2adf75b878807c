#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QPointer>
#include <QStackedWidget>

#include "flow/AppFlow.hpp"
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

TEST(ContentView, ExactlyOneScreenForEachStepAndTheInputScreenBuiltAnew) {
  test::TempDir home;
  AppFlow flow(AppEnvironment{home.path(), {{"VORLAN_UPDATE_ENDPOINT", ""}}, {}, {}, {}, {}, {}});
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

}  // namespace
}  // namespace vorlan::app

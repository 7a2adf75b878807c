#include <QCheckBox>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

#include "app/ScreenTestSupport.hpp"
#include "screens/SystemDataInputView.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

// Sets or clears the statistics back-end for one test and puts the environment back after.
class BackEnd {
 public:
  explicit BackEnd(bool configured) {
    for (const char* name : names) saved_.push_back(qgetenv(name));
    for (const char* name : names) configured ? qputenv(name, "http://127.0.0.1:9") : qunsetenv(name);
  }
  ~BackEnd() {
    for (size_t i = 0; i < std::size(names); ++i)
      saved_[i].isNull() ? qunsetenv(names[i]) : qputenv(names[i], saved_[i]);
  }

 private:
  static constexpr const char* names[] = {"VORLAN_TELEMETRY_URL", "VORLAN_TELEMETRY_ANON_KEY"};
  std::vector<QByteArray> saved_;
};

QPushButton* button(QWidget& view, const QString& text) {
  for (auto* b : view.findChildren<QPushButton*>())
    if (b->text() == text) return b;
  ADD_FAILURE() << "no button " << text.toStdString();
  return nullptr;
}

struct InputScreen {
  vorlan::test::TempDir home;
  AppFlow flow{test::screenEnvironment(home.path())};
  SystemDataInputView view{flow};
  InputScreen() { test::showAt(view, {800, 600}); }
  QPushButton* start() { return button(view, "이 수치로 스캔 시작"); }
  QPushButton* skip() { return button(view, "건너뛰고 스캔"); }
};

TEST(SystemDataInputView, ReadsTheFigureWithCommaOrPoint) {
  BackEnd none(false);
  struct Case {
    const char* typed;
    std::optional<double> figure;
  };
  for (const Case& c : {Case{"113,19", 113.19}, Case{"113.19", 113.19}, Case{"0", {}},
                        Case{"-3", {}}, Case{"abc", {}}, Case{"", {}}, Case{"1,2,3", {}}}) {
    InputScreen s;
    QTest::keyClicks(s.view.findChild<QLineEdit*>("figure"), c.typed);
    EXPECT_EQ(s.view.figure(), c.figure) << c.typed;
    EXPECT_EQ(s.start()->isEnabled(), c.figure.has_value()) << c.typed;
    if (c.figure) {
      QTest::mouseClick(s.start(), Qt::LeftButton);
      EXPECT_EQ(s.flow.systemDataGB(), c.figure) << c.typed;
    }
  }
}

TEST(SystemDataInputView, NoScanWithoutConsentWhenABackEndIsConfigured) {
  struct Case {
    bool backEnd, consented;
    bool toggleShown, buttonsEnabled;
  };
  for (const Case& c : {Case{false, false, false, true}, Case{true, false, true, false},
                        Case{true, true, true, true}}) {
    BackEnd backEnd(c.backEnd);
    InputScreen s;
    QTest::keyClicks(s.view.findChild<QLineEdit*>("figure"), "50");
    auto* consent = s.view.findChild<QCheckBox*>("consent");
    ASSERT_EQ(consent != nullptr, c.toggleShown);
    if (consent && c.consented) QTest::mouseClick(consent, Qt::LeftButton, {}, {4, consent->height() / 2});
    EXPECT_EQ(s.flow.telemetryConsented(), c.consented);
    EXPECT_EQ(s.skip()->isEnabled(), c.buttonsEnabled) << c.backEnd << c.consented;
    EXPECT_EQ(s.start()->isEnabled(), c.buttonsEnabled) << c.backEnd << c.consented;
  }
}

TEST(SystemDataInputView, ScanFailureAlertShowsTheErrorAndClearsIt) {
  InputScreen s;
  s.flow.setScanError(QStringLiteral("스캔에 실패했습니다: du"));
  auto* alert = s.view.findChild<QMessageBox*>();
  ASSERT_NE(alert, nullptr);
  EXPECT_EQ(alert->windowTitle(), "스캔 실패");
  EXPECT_EQ(alert->informativeText(), "스캔에 실패했습니다: du");
  QTest::mouseClick(alert->buttons().front(), Qt::LeftButton);
  EXPECT_FALSE(s.flow.scanError());
}

}  // namespace
}  // namespace vorlan::app

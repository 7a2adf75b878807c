// The one window: the update banner slot on top and exactly one screen for the flow's step
// below. Owns nothing of the flow; it only follows `step` and the update fields.
#pragma once
#include <QMainWindow>

class QStackedWidget;
class QVBoxLayout;

namespace vorlan::app {

class AppFlow;

class ContentView : public QMainWindow {
  Q_OBJECT

 public:
  explicit ContentView(AppFlow& flow, QWidget* parent = nullptr);

  // The screen that shows now; for tests and screenshots.
  QWidget* currentScreen() const;

 private:
  // Builds the step's screen afresh and drops the one before it: no screen has to undo the
  // state of its last showing, and the input screen always starts with an empty field.
  void showStep();
  // The banner while an update is known and the user has not closed it; else nothing.
  void showUpdateBanner();

  AppFlow& flow_;
  QVBoxLayout* bannerSlot_ = nullptr;
  QStackedWidget* stack_ = nullptr;
};

}  // namespace vorlan::app

// The one window: the update banner slot on top and exactly one screen for the flow's step
// below; the sheets over any screen.
#pragma once
#include <QMainWindow>

namespace vorlan::app {

class AppFlow;

class ContentView : public QMainWindow {
  Q_OBJECT

 public:
  explicit ContentView(AppFlow& flow, QWidget* parent = nullptr);

 private:
  void showStep();

  AppFlow& flow_;
};

}  // namespace vorlan::app

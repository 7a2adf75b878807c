// Placeholder: the screen's content comes with the theme and screens work.
#pragma once
#include <QWidget>

namespace vorlan::app {

class AppFlow;

class CleanupPlanView : public QWidget {
  Q_OBJECT

 public:
  explicit CleanupPlanView(AppFlow& flow, QWidget* parent = nullptr);

 private:
  AppFlow& flow_;
};

}  // namespace vorlan::app

// The cleanup screen's place in the flow; the plan itself fills it later. For now it only
// leads back to the report.
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

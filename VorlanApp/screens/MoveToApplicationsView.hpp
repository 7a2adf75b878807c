// The offer to move the app into the applications folder, shown when it runs from elsewhere
// (a disk image, Downloads). The move runs on the flow's worker; this process ends when the
// copy has started, and a failure comes back here in its own words.
#pragma once
#include "screens/SheetFrame.hpp"

namespace vorlan::app {

class AppFlow;

class MoveToApplicationsView : public SheetFrame {
  Q_OBJECT

 public:
  explicit MoveToApplicationsView(AppFlow& flow, QWidget* parent = nullptr);

  // Starts the move, as the main button does; nothing while one is under way.
  void move();
  // While moving the button is disabled and says so. Set by the sheet itself; public for the
  // screenshots, which cannot catch a real move half-way.
  void setMoving(bool moving);

 private:

  AppFlow& flow_;
  QPushButton* moveButton_;
  bool moving_ = false;
};

}  // namespace vorlan::app

// The one window: the update banner slot on top and exactly one screen for the flow's step
// below, and the install sheets over whatever screen shows. Owns nothing of the flow; it only
// follows `step`, the update fields and the two install offers.
#pragma once
#include <QMainWindow>
#include <QPointer>

#include "screens/MoveToApplicationsView.hpp"
#include "screens/TrashDMGView.hpp"

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
  // The install sheets while they show; for tests and screenshots.
  MoveToApplicationsView* moveSheet() const { return moveSheet_; }
  TrashDMGView* trashSheet() const { return trashSheet_; }

 private:
  // Builds the step's screen afresh and drops the one before it: no screen has to undo the
  // state of its last showing, and the input screen always starts with an empty field.
  void showStep();
  // The banner while an update is known and the user has not closed it; else nothing.
  void showUpdateBanner();
  // The sheets follow the flow's offers: open while an offer stands, and closing a sheet
  // withdraws its offer. They belong to the window, so a change of step leaves them open.
  void showMoveSheet();
  void showTrashSheet();

  AppFlow& flow_;
  QVBoxLayout* bannerSlot_ = nullptr;
  QStackedWidget* stack_ = nullptr;
  QPointer<MoveToApplicationsView> moveSheet_;
  QPointer<TrashDMGView> trashSheet_;
};

}  // namespace vorlan::app

// After the app has moved itself, the offer to put the downloaded disk image in the trash.
// The trash runs on a worker thread: a slow volume never holds up the window.
#pragma once
#include "flow/BackgroundJobs.hpp"
#include "screens/SheetFrame.hpp"

namespace vorlan::app {

class TrashDMGView : public SheetFrame {
  Q_OBJECT

 public:
  explicit TrashDMGView(QString dmgPath, QWidget* parent = nullptr);

  const QString& dmgPath() const { return dmgPath_; }
  // Puts the image in the trash, as the main button does: closes the sheet when it is done,
  // else says why on it.
  void trash();

 private:
  QString dmgPath_;
  QPushButton* trashButton_;
  BackgroundJobs jobs_;  // last: a trash still running is joined before the rest goes
};

}  // namespace vorlan::app

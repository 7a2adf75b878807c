// Asks for full disk access and waits for it: a poll each second moves on by itself once the
// permission is there. There is no other way off this screen.
#pragma once
#include <QTimer>
#include <QWidget>

namespace vorlan::app {

class AppFlow;

class FDAView : public QWidget {
  Q_OBJECT

 public:
  explicit FDAView(AppFlow& flow, QWidget* parent = nullptr);

 private:
  AppFlow& flow_;
  QTimer poll_;
};

}  // namespace vorlan::app

// The first screen: what Vorlan is for and its one promise, and the way in.
#pragma once
#include <QWidget>

namespace vorlan::app {

class AppFlow;

class WelcomeView : public QWidget {
  Q_OBJECT

 public:
  explicit WelcomeView(AppFlow& flow, QWidget* parent = nullptr);

 private:
  AppFlow& flow_;
};

}  // namespace vorlan::app

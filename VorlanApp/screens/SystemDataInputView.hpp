// Placeholder: the screen's content comes with the theme and screens work.
#pragma once
#include <QWidget>

namespace vorlan::app {

class AppFlow;

class SystemDataInputView : public QWidget {
  Q_OBJECT

 public:
  explicit SystemDataInputView(AppFlow& flow, QWidget* parent = nullptr);

 private:
  AppFlow& flow_;
};

}  // namespace vorlan::app

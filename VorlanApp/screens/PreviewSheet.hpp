// What the anonymous statistics hold and what they never hold, shown before the user agrees.
#pragma once
#include <QDialog>

namespace vorlan::app {

class PreviewSheet : public QDialog {
  Q_OBJECT

 public:
  explicit PreviewSheet(QWidget* parent = nullptr);

 protected:
  void showEvent(QShowEvent* event) override;
};

}  // namespace vorlan::app

// The exact text an explain request sends (or sent), for the user to read: a window-modal
// sheet with the JSON in a scrolling block and "닫기".
#pragma once
#include <QDialog>

class QPlainTextEdit;

namespace vorlan::app {

class ExplainRequestSheet : public QDialog {
  Q_OBJECT

 public:
  ExplainRequestSheet(const QString& request, QWidget* parent = nullptr);
  QString request() const;

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  QPlainTextEdit* text_;
};

}  // namespace vorlan::app

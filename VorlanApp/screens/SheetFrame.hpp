// The frame the install sheets share: a title, a sentence, a line for a failure's words and a
// row of two buttons, the first on the left and the main one on the right. Window-modal over
// the window that opens it.
#pragma once
#include <QDialog>

class QHBoxLayout;
class QLabel;
class QPushButton;

namespace vorlan::app {

class SheetFrame : public QDialog {
  Q_OBJECT

 public:
  // The failure line's text; empty while nothing has failed.
  QString error() const;

 protected:
  SheetFrame(const QString& title, const QString& sentence, QWidget* parent);
  void setButtons(QPushButton* first, QPushButton* second);
  // Shows `text` on the failure line; it stays until the next failure replaces it.
  void setError(const QString& text);

 private:
  QLabel* error_;
  QHBoxLayout* buttons_;
};

}  // namespace vorlan::app

// The figure only the user can read (the settings' System Data), the statistics consent where
// a back-end is configured, and the two ways to start a scan. Built anew each time it shows,
// so the field starts empty and the preview closed. Shows the last scan's failure as an alert.
#pragma once
#include <QPointer>
#include <QWidget>

#include <optional>

class QLineEdit;
class QMessageBox;
class QPushButton;

namespace vorlan::app {

class AppFlow;

class SystemDataInputView : public QWidget {
  Q_OBJECT

 public:
  explicit SystemDataInputView(AppFlow& flow, QWidget* parent = nullptr);

  // The figure in the field as a number above 0, a comma read as a decimal point.
  std::optional<double> figure() const;
  // Opens the statistics preview sheet.
  void showPreview();

 private:
  void updateButtons();
  void syncAlert();

  AppFlow& flow_;
  const bool telemetryEnabled_;
  QLineEdit* gbText_;
  QPushButton* skip_;
  QPushButton* start_;
  QPointer<QMessageBox> alert_;
};

}  // namespace vorlan::app

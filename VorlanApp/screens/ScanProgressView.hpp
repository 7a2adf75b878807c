// The running scan: its latest message, a bar (determinate while a fraction is known), the
// path at work, and cancel.
#pragma once
#include <QWidget>

#include <optional>

#include "scan/ScanRecords.hpp"

class QLabel;
class QProgressBar;

namespace vorlan::app::theme {
class ElidedLabel;
}

namespace vorlan::app {

class AppFlow;

class ScanProgressView : public QWidget {
  Q_OBJECT

 public:
  explicit ScanProgressView(AppFlow& flow, QWidget* parent = nullptr);

  // Shows `progress`; called for each report the flow receives.
  void showProgress(const std::optional<ScanProgress>& progress);

 private:
  AppFlow& flow_;
  QLabel* message_;
  QProgressBar* bar_;
  theme::ElidedLabel* detail_;
};

}  // namespace vorlan::app

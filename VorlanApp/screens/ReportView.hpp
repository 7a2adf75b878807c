// The scan's result as a column of cards: the whole-disk balance, the ledger and its picture
// (or the safe total when no figure was typed), the way on to the cleanup, the container
// warning, one section per grade, and what went to the statistics. Saves the report file to
// the Desktop.
#pragma once
#include <QWidget>

#include <filesystem>
#include <optional>

class QLabel;
class QPushButton;
class QVBoxLayout;

namespace vorlan::app {

class AppFlow;

namespace theme {
class ElidedLabel;
}

class ReportView : public QWidget {
  Q_OBJECT

 public:
  explicit ReportView(AppFlow& flow, QWidget* parent = nullptr);

  // Writes the report into the Desktop folder of the flow's home; a failure opens an alert.
  void save();
  const std::optional<std::filesystem::path>& savedURL() const { return savedURL_; }

 private:
  void rebuild();
  void showSaved();

  AppFlow& flow_;
  QWidget* bar_;
  QPushButton* saveButton_;
  QWidget* savedRow_;
  theme::ElidedLabel* savedLabel_;
  QVBoxLayout* column_;
  std::optional<std::filesystem::path> savedURL_;
  std::optional<QString> saveError_;
};

}  // namespace vorlan::app

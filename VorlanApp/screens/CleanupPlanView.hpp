// The cleanup screen: the quarantine panel, what went wrong or was left alone last time, the
// standing explanation, the explain offer and the plan's rows, in a scrolling column; below it
// the bar with "뒤로", what the ticks free now and after the hold, and the delete button. It
// decides only which rows can be touched and which words stand where; everything it does it
// asks of CleanupFlow or AppFlow.
#pragma once
#include <QWidget>

class QLabel;
class QScrollArea;
class QStackedWidget;

namespace vorlan::app {

class AppFlow;
class CleanupFlow;
class CleanupRowList;
class CleanupRowModel;
class ExplainCard;
class QuarantineView;

namespace theme {
class VLButton;
}

class CleanupPlanView : public QWidget {
  Q_OBJECT

 public:
  explicit CleanupPlanView(AppFlow& flow, QWidget* parent = nullptr);

  CleanupRowModel* rows() const { return model_; }
  CleanupRowList* rowList() const { return list_; }

 protected:
  // The first appearance clears the last execution's words and loads the plan afresh.
  void showEvent(QShowEvent* event) override;

 private:
  void showNotices();
  void showLoading();
  void showTotals();

  AppFlow& flow_;
  CleanupFlow& cleanup_;
  bool appeared_ = false;
  QStackedWidget* pages_;
  QWidget* loadingPage_;
  QWidget* planPage_;
  QScrollArea* area_;
  QuarantineView* quarantine_;
  QLabel* errorLine_;
  QLabel* skippedLine_;
  ExplainCard* explain_;
  CleanupRowModel* model_;
  CleanupRowList* list_;
  QWidget* listCard_;
  QLabel* immediateLine_;
  QLabel* heldLine_;
  theme::VLButton* deleteButton_;
};

}  // namespace vorlan::app

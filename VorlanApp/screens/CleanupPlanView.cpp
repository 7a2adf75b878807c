#include "screens/CleanupPlanView.hpp"

#include <QHBoxLayout>
#include <QPainter>
#include <QScrollArea>
#include <QShowEvent>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "cleanup/CleanupCopy.hpp"
#include "flow/AppFlow.hpp"
#include "screens/CleanupRowDelegate.hpp"
#include "screens/CleanupRowModel.hpp"
#include "screens/ExplainCard.hpp"
#include "screens/QuarantineView.hpp"
#include "theme/Components.hpp"
#include "theme/Icons.hpp"

namespace vorlan::app {

using namespace theme;

namespace {

QString gb(int64_t bytes) { return QString::fromStdString(formatGB(bytes)); }

// The bar under the column: a hairline on top, the window's background behind.
class BottomBar : public QWidget {
 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter p(this);
    p.fillRect(rect(), vlBg.current());
    p.fillRect(QRect(0, 0, width(), 1), vlLine.current());
  }
};

}  // namespace

CleanupPlanView::CleanupPlanView(AppFlow& flow, QWidget* parent)
    : QWidget(parent), flow_(flow), cleanup_(flow.cleanup()) {
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  outer->setSpacing(0);
  pages_ = new QStackedWidget;
  outer->addWidget(pages_, 1);

  // While the first rows are being found, the column gives way to this.
  loadingPage_ = new QWidget;
  auto* waiting = new QVBoxLayout(loadingPage_);
  waiting->addStretch();
  auto* waitRow = new QHBoxLayout;
  waitRow->addStretch();
  waitRow->addWidget(new Spinner(18));
  QLabel* waitText = label("지울 수 있는 것을 찾는 중입니다...", Text::muted);
  waitText->setWordWrap(false);  // one short line, centred
  waitRow->addWidget(waitText);
  waitRow->addStretch();
  waiting->addLayout(waitRow);
  waiting->addStretch();
  pages_->addWidget(loadingPage_);

  planPage_ = new QWidget;
  QVBoxLayout* column = scrollingColumn(planPage_, 700);
  area_ = planPage_->findChild<QScrollArea*>();
  area_->widget()->layout()->setContentsMargins(24, 24, 24, 24);
  pages_->addWidget(planPage_);

  quarantine_ = new QuarantineView(flow_.quarantineStore(), flow_.environment().now);
  column->addWidget(quarantine_);
  errorLine_ = label({}, Text::body);
  errorLine_->setObjectName("executeError");
  tint(errorLine_, Tint::accent);
  column->addWidget(errorLine_);
  skippedLine_ = label({}, Text::body);
  skippedLine_->setObjectName("skippedInUse");
  tint(skippedLine_, Tint::accent);
  column->addWidget(skippedLine_);
  column->addWidget(label("체크한 항목을 지웁니다. 앱이 다시 만드는 캐시는 바로 비우고, 나머지는 휴지통처럼 "
                          "보관함에 7일 두었다가 비웁니다 — 그 안에는 되돌릴 수 있습니다.",
                          Text::body));
  explain_ = new ExplainCard(cleanup_);
  column->addWidget(explain_);

  auto* card = new VLMinorCard;
  listCard_ = card;
  card->column()->setContentsMargins(1, 1, 1, 1);
  model_ = new CleanupRowModel(cleanup_, this);
  list_ = new CleanupRowList;
  list_->setModel(model_);
  card->column()->addWidget(list_);
  column->addWidget(card);
  column->addStretch();
  connect(list_, &CleanupRowList::wantsInSight, this, [this](const QRect& rect) {
    const QPoint centre = list_->mapTo(area_->widget(), rect.center());
    area_->ensureVisible(centre.x(), centre.y(), 0, rect.height() / 2 + 12);
  });

  // The bar: back, the two figures, the one great action.
  auto* bar = new BottomBar;
  auto* row = new QHBoxLayout(bar);
  row->setContentsMargins(20, 12, 20, 10);
  row->setSpacing(16);
  auto* back = new QPushButton("뒤로");
  back->setObjectName("backButton");
  asSecondary(back);
  row->addWidget(back, 0, Qt::AlignVCenter);
  auto* figures = new QVBoxLayout;
  figures->setSpacing(2);
  immediateLine_ = label({}, Text::footnote);
  immediateLine_->setObjectName("immediateFigure");
  heldLine_ = label({}, Text::footnote);
  heldLine_->setObjectName("heldFigure");
  figures->addStretch();
  figures->addWidget(immediateLine_);
  figures->addWidget(heldLine_);
  figures->addStretch();
  row->addLayout(figures, 1);
  deleteButton_ = accentButton({});
  deleteButton_->setObjectName("deleteButton");
  deleteButton_->setMinimumWidth(160);
  row->addWidget(deleteButton_, 0, Qt::AlignVCenter);
  outer->addWidget(bar);

  connect(back, &QPushButton::clicked, &flow_, [this] { flow_.setStep(AppFlow::Step::report); });
  connect(deleteButton_, &QPushButton::clicked, this, [this] {
    const auto& checked = cleanup_.checked();
    flow_.requestCleanup({checked.begin(), checked.end()});
  });
  connect(&cleanup_, &CleanupFlow::lastBatchChanged, this, [this] {
    const auto& batch = cleanup_.lastBatch();
    quarantine_->setRefreshToken(batch ? std::optional(batch->id) : std::nullopt);
  });
  connect(&cleanup_, &CleanupFlow::executeErrorChanged, this, &CleanupPlanView::showNotices);
  connect(&cleanup_, &CleanupFlow::skippedInUseChanged, this, &CleanupPlanView::showNotices);
  connect(&cleanup_, &CleanupFlow::isLoadingChanged, this, &CleanupPlanView::showLoading);
  connect(model_, &QAbstractItemModel::modelReset, this, &CleanupPlanView::showLoading);
  connect(model_, &QAbstractItemModel::rowsInserted, this, &CleanupPlanView::showLoading);
  connect(&cleanup_, &CleanupFlow::checkedChanged, this, &CleanupPlanView::showTotals);
  connect(&cleanup_, &CleanupFlow::itemsChanged, this, &CleanupPlanView::showTotals);
  connect(&cleanup_, &CleanupFlow::isExecutingChanged, this, &CleanupPlanView::showTotals);
  const auto& batch = cleanup_.lastBatch();
  quarantine_->setRefreshToken(batch ? std::optional(batch->id) : std::nullopt);
  showNotices();
  showLoading();
  showTotals();
}

void CleanupPlanView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (appeared_ || event->spontaneous()) return;
  appeared_ = true;
  quarantine_->appeared();
  cleanup_.setExecuteError(std::nullopt);
  cleanup_.setSkippedInUse({});
  cleanup_.load();
}

void CleanupPlanView::showNotices() {
  const auto& error = cleanup_.executeError();
  errorLine_->setText(error.value_or(QString()));
  errorLine_->setVisible(error.has_value());
  const auto& skipped = cleanup_.skippedInUse();
  skippedLine_->setText(QString::fromStdString(skippedInUseLine(skipped)));
  skippedLine_->setVisible(!skipped.empty());
}

void CleanupPlanView::showLoading() {
  const bool waiting = cleanup_.isLoading() && model_->rowCount() == 0;
  pages_->setCurrentWidget(waiting ? loadingPage_ : planPage_);
  listCard_->setVisible(model_->rowCount() > 0);
}

void CleanupPlanView::showTotals() {
  immediateLine_->setText(QString::fromStdString(immediateFigure(cleanup_.selectedImmediateBytes())));
  heldLine_->setText(QString::fromStdString(heldFigure(cleanup_.selectedHeldBytes())));
  const bool executing = cleanup_.isExecuting();
  deleteButton_->setText(executing ? QStringLiteral("삭제하는 중…")
                                   : "선택한 " + gb(cleanup_.selectedBytes()) + " 삭제");
  deleteButton_->setEnabled(!executing && !cleanup_.checked().empty());
  // Ticks given while a deletion runs would be lost when its outcome lands.
  list_->setEnabled(!executing);
  deleteButton_->updateGeometry();
}

}  // namespace vorlan::app

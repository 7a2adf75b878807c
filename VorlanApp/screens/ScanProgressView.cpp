#include "screens/ScanProgressView.hpp"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <cmath>

#include "flow/AppFlow.hpp"
#include "theme/Components.hpp"

namespace vorlan::app {

using namespace theme;

namespace {
constexpr int barWidth = 360;
constexpr int detailMaxWidth = 440;
constexpr int barSteps = 1000;
}  // namespace

ScanProgressView::ScanProgressView(AppFlow& flow, QWidget* parent)
    : QWidget(parent), flow_(flow) {
  QVBoxLayout* column = scrollingColumn(this, detailMaxWidth, new TrustFooter);
  column->addStretch();
  auto* heading = label("스캔 중...", Text::title);
  heading->setAlignment(Qt::AlignHCenter);
  column->addWidget(heading);
  message_ = label({}, Text::body);
  message_->setAlignment(Qt::AlignHCenter);
  column->addWidget(message_);
  bar_ = new QProgressBar;
  bar_->setFixedWidth(barWidth);
  bar_->setTextVisible(false);
  column->addWidget(bar_, 0, Qt::AlignHCenter);
  // The path at work; a long one keeps its beginning and its end, the folder at work.
  detail_ = new ElidedLabel(Text::footnote);
  detail_->setAlignment(Qt::AlignHCenter);
  detail_->setMaximumWidth(detailMaxWidth);
  column->addWidget(detail_);
  column->addSpacing(8);
  auto* cancel = new QPushButton("취소");
  asSecondary(cancel);
  column->addWidget(cancel, 0, Qt::AlignHCenter);
  column->addStretch();

  // The screen stays until the cancelled scan has ended; the flow then leaves it by itself.
  connect(cancel, &QPushButton::clicked, this, [this] { flow_.cancelScan(); });
  connect(&flow_, &AppFlow::progressChanged, this, [this] { showProgress(flow_.progress()); });
  showProgress(flow_.progress());
}

void ScanProgressView::showProgress(const std::optional<ScanProgress>& progress) {
  message_->setVisible(progress.has_value());
  message_->setText(progress ? QString::fromStdString(progress->message) : QString());
  if (progress && progress->fraction) {
    bar_->setRange(0, barSteps);
    bar_->setValue(static_cast<int>(std::lround(std::clamp(*progress->fraction, 0.0, 1.0) * barSteps)));
  } else {
    bar_->setRange(0, 0);  // indeterminate
  }
  const QString detail =
      progress && progress->detail ? QString::fromStdString(*progress->detail) : QString();
  detail_->setFullText(detail);
  detail_->setVisible(!detail.isEmpty());
}

}  // namespace vorlan::app

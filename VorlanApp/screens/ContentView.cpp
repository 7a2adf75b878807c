#include "screens/ContentView.hpp"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QUrl>
#include <QVBoxLayout>

#include "flow/AppFlow.hpp"
#include "screens/CleanupPlanView.hpp"
#include "screens/FDAView.hpp"
#include "screens/ReportView.hpp"
#include "screens/ScanProgressView.hpp"
#include "screens/SystemDataInputView.hpp"
#include "screens/WelcomeView.hpp"
#include "theme/Theme.hpp"

namespace vorlan::app {
namespace {

QWidget* makeScreen(AppFlow::Step step, AppFlow& flow, QWidget* parent) {
  switch (step) {
    case AppFlow::Step::welcome: return new WelcomeView(flow, parent);
    case AppFlow::Step::fullDiskAccess: return new FDAView(flow, parent);
    case AppFlow::Step::systemDataInput: return new SystemDataInputView(flow, parent);
    case AppFlow::Step::scanning: return new ScanProgressView(flow, parent);
    case AppFlow::Step::report: return new ReportView(flow, parent);
    case AppFlow::Step::cleanupPlan: return new CleanupPlanView(flow, parent);
  }
  return new QWidget(parent);
}

// A plain strip until the update screens come: the news, a link to it, and a way to close it.
QWidget* makeUpdateBanner(AppFlow& flow, const UpdateInfo& info, QWidget* parent) {
  auto* banner = new QWidget(parent);
  banner->setObjectName(QStringLiteral("updateBanner"));
  auto* row = new QHBoxLayout(banner);
  row->setContentsMargins(16, 8, 16, 8);
  row->setSpacing(10);
  row->addWidget(new QLabel(
      QStringLiteral("새 버전 %1이 나왔습니다").arg(QString::fromStdString(info.version)), banner));
  row->addStretch();
  auto* get = new QPushButton(QStringLiteral("받기"), banner);
  get->setFlat(true);
  QObject::connect(get, &QPushButton::clicked, banner, [url = QString::fromStdString(info.url)] {
    QDesktopServices::openUrl(QUrl(url));
  });
  row->addWidget(get);
  auto* close = new QPushButton(QStringLiteral("✕"), banner);
  close->setFlat(true);
  close->setAccessibleName(QStringLiteral("닫기"));
  QObject::connect(close, &QPushButton::clicked, &flow, [&flow] { flow.setUpdateDismissed(true); });
  row->addWidget(close);
  return banner;
}

}  // namespace

ContentView::ContentView(AppFlow& flow, QWidget* parent) : QMainWindow(parent), flow_(flow) {
  setWindowTitle(QStringLiteral("Vorlan"));
  setWindowIcon(theme::glyphIcon());
  setMinimumSize(560, 440);

  auto* column = new QWidget(this);
  auto* layout = new QVBoxLayout(column);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  bannerSlot_ = new QVBoxLayout;
  bannerSlot_->setContentsMargins(0, 0, 0, 0);
  layout->addLayout(bannerSlot_);
  stack_ = new QStackedWidget(column);
  layout->addWidget(stack_, 1);
  setCentralWidget(column);

  connect(&flow_, &AppFlow::stepChanged, this, &ContentView::showStep);
  connect(&flow_, &AppFlow::availableUpdateChanged, this, &ContentView::showUpdateBanner);
  connect(&flow_, &AppFlow::updateDismissedChanged, this, &ContentView::showUpdateBanner);
  showStep();
  showUpdateBanner();
}

QWidget* ContentView::currentScreen() const { return stack_->currentWidget(); }

void ContentView::showStep() {
  QWidget* old = stack_->currentWidget();
  QWidget* screen = makeScreen(flow_.step(), flow_, stack_);
  stack_->addWidget(screen);
  stack_->setCurrentWidget(screen);
  if (old) {
    stack_->removeWidget(old);
    // Later, not now: the step may have changed from inside one of the old screen's own
    // handlers, which is still running.
    old->hide();
    old->deleteLater();
  }
}

void ContentView::showUpdateBanner() {
  while (QLayoutItem* item = bannerSlot_->takeAt(0)) {
    if (QWidget* widget = item->widget()) {
      widget->hide();
      widget->deleteLater();
    }
    delete item;
  }
  const auto& update = flow_.availableUpdate();
  if (update && !flow_.updateDismissed())
    bannerSlot_->addWidget(makeUpdateBanner(flow_, *update, centralWidget()));
}

}  // namespace vorlan::app

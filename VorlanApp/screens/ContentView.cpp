#include "screens/ContentView.hpp"

#include <QStackedWidget>
#include <QVBoxLayout>

#include <utility>

#include "flow/AppFlow.hpp"
#include "screens/CleanupPlanView.hpp"
#include "screens/FDAView.hpp"
#include "screens/MoveToApplicationsView.hpp"
#include "screens/ReportView.hpp"
#include "screens/ScanProgressView.hpp"
#include "screens/SystemDataInputView.hpp"
#include "screens/TrashDMGView.hpp"
#include "screens/UpdateBanner.hpp"
#include "screens/WelcomeView.hpp"
#include "theme/Components.hpp"
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
  connect(&flow_, &AppFlow::showMoveSheetChanged, this, &ContentView::showMoveSheet);
  connect(&flow_, &AppFlow::dmgToTrashChanged, this, &ContentView::showTrashSheet);
  showStep();
  showUpdateBanner();
  // The offers made at launch open once the window shows: a sheet needs its window on screen.
  QMetaObject::invokeMethod(this, &ContentView::showMoveSheet, Qt::QueuedConnection);
  QMetaObject::invokeMethod(this, &ContentView::showTrashSheet, Qt::QueuedConnection);
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
  theme::clearLayout(bannerSlot_);
  const auto& update = flow_.availableUpdate();
  if (update && !flow_.updateDismissed())
    bannerSlot_->addWidget(new UpdateBanner(
        *update, [&flow = flow_] { flow.setUpdateDismissed(true); }, centralWidget()));
}

void ContentView::showMoveSheet() {
  if (flow_.showMoveSheet() == static_cast<bool>(moveSheet_)) return;
  if (!flow_.showMoveSheet()) {
    // Taken first: closing it withdraws the offer again, which must find no sheet.
    MoveToApplicationsView* sheet = std::exchange(moveSheet_, nullptr);
    sheet->close();
    return;
  }
  auto* sheet = new MoveToApplicationsView(flow_, this);
  sheet->setAttribute(Qt::WA_DeleteOnClose);
  moveSheet_ = sheet;
  connect(sheet, &QDialog::finished, this, [this, sheet] {
    if (moveSheet_ == sheet) moveSheet_ = nullptr;
    flow_.setShowMoveSheet(false);
  });
  sheet->open();
}

void ContentView::showTrashSheet() {
  const auto& candidate = flow_.dmgToTrash();
  if (trashSheet_ && (!candidate || trashSheet_->dmgPath() != candidate->path))
    std::exchange(trashSheet_, nullptr)->close();
  if (!candidate || trashSheet_) return;
  auto* sheet = new TrashDMGView(candidate->path, this);
  sheet->setAttribute(Qt::WA_DeleteOnClose);
  trashSheet_ = sheet;
  connect(sheet, &QDialog::finished, this, [this, sheet] {
    if (trashSheet_ != sheet) return;  // replaced by a newer offer, which stands
    trashSheet_ = nullptr;
    flow_.setDmgToTrash(std::nullopt);
  });
  sheet->open();
}

}  // namespace vorlan::app

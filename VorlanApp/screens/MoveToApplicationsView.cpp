#include "screens/MoveToApplicationsView.hpp"

#include <QPushButton>

#include <algorithm>

#include "flow/AppFlow.hpp"
#include "theme/Components.hpp"

namespace vorlan::app {

using namespace theme;

namespace {

QString sentence(const AppFlow& flow) {
  return QStringLiteral("지금은 %1에서 실행 중입니다. 응용 프로그램 폴더에 있어야 다음 업데이트가 "
                        "같은 자리에 들어가고 Launchpad에도 보입니다.")
      .arg(flow.installOrigin());
}

}  // namespace

MoveToApplicationsView::MoveToApplicationsView(AppFlow& flow, QWidget* parent)
    : SheetFrame(QStringLiteral("Vorlan을 응용 프로그램 폴더로 옮길까요?"), sentence(flow), parent),
      flow_(flow) {
  auto* later = new QPushButton(QStringLiteral("이번엔 그냥 쓰기"));
  asSecondary(later);
  moveButton_ = primaryButton(QStringLiteral("옮기고 다시 열기"));
  // As wide as the longer label, so the row does not jump while moving.
  moveButton_->setFixedWidth(std::max(140, moveButton_->sizeHint().width()));
  setButtons(later, moveButton_);
  connect(later, &QPushButton::clicked, this, &QDialog::reject);
  connect(moveButton_, &QPushButton::clicked, this, &MoveToApplicationsView::move);
  connect(&flow_, &AppFlow::moveFailed, this, [this](const QString& error) {
    // A failure of a move this sheet did not start (the automatic one at launch) is not shown.
    if (!moving_) return;
    setError(error);
    setMoving(false);
  });
}

void MoveToApplicationsView::move() {
  if (moving_) return;
  setMoving(true);
  flow_.moveToApplications();
}

void MoveToApplicationsView::setMoving(bool moving) {
  moving_ = moving;
  moveButton_->setEnabled(!moving);
  moveButton_->setText(moving ? QStringLiteral("옮기는 중…") : QStringLiteral("옮기고 다시 열기"));
}

}  // namespace vorlan::app

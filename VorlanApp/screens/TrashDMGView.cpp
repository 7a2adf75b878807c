#include "screens/TrashDMGView.hpp"

#include <QFileInfo>
#include <QPushButton>

#include <optional>

#include "flow/InstallMover.hpp"
#include "theme/Components.hpp"

namespace vorlan::app {

using namespace theme;

TrashDMGView::TrashDMGView(QString dmgPath, QWidget* parent)
    : SheetFrame(QStringLiteral("설치가 끝났습니다"),
                 // The file's name only: the folder it lies in says nothing to the user here.
                 QStringLiteral("다운로드한 %1는 이제 필요 없습니다. 휴지통으로 옮길까요?")
                     .arg(QFileInfo(dmgPath).fileName()),
                 parent),
      dmgPath_(std::move(dmgPath)) {
  auto* keep = new QPushButton(QStringLiteral("그대로 두기"));
  asSecondary(keep);
  trashButton_ = primaryButton(QStringLiteral("휴지통으로"));
  trashButton_->setMinimumWidth(120);
  setButtons(keep, trashButton_);
  connect(keep, &QPushButton::clicked, this, &QDialog::reject);
  connect(trashButton_, &QPushButton::clicked, this, &TrashDMGView::trash);
}

void TrashDMGView::trash() {
  trashButton_->setEnabled(false);
  jobs_.start(
      [path = dmgPath_.toStdString()](std::stop_token) -> std::optional<QString> {
        try {
          InstallMover::trash(path);
          return std::nullopt;
        } catch (const std::exception& error) {
          return QString::fromStdString(error.what());
        }
      },
      [this](std::optional<QString> error) {
        trashButton_->setEnabled(true);
        if (!error) {
          accept();
          return;
        }
        setError(QStringLiteral("휴지통으로 옮기지 못했습니다: %1").arg(*error));
      });
}

}  // namespace vorlan::app

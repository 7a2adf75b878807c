#include "screens/SheetFrame.hpp"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "theme/Components.hpp"

namespace vorlan::app {

using namespace theme;

SheetFrame::SheetFrame(const QString& title, const QString& sentence, QWidget* parent)
    : QDialog(parent) {
  setWindowTitle(QStringLiteral("Vorlan"));
  setWindowModality(Qt::WindowModal);
  setFixedWidth(440);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(24, 24, 24, 24);
  column->setSpacing(16);
  column->addWidget(label(title, Text::title3));
  column->addWidget(label(sentence, Text::body));
  error_ = label(QString(), Text::error);
  error_->hide();
  column->addWidget(error_);
  buttons_ = new QHBoxLayout;
  buttons_->setSpacing(12);
  column->addLayout(buttons_);
}

QString SheetFrame::error() const { return error_->isHidden() ? QString() : error_->text(); }

void SheetFrame::setButtons(QPushButton* first, QPushButton* second) {
  buttons_->addWidget(first, 0, Qt::AlignVCenter);
  buttons_->addStretch();
  buttons_->addWidget(second, 0, Qt::AlignVCenter);
}

void SheetFrame::setError(const QString& text) {
  error_->setText(text);
  error_->show();
  // The sheet keeps its width and grows by the line's height.
  adjustSize();
}

}  // namespace vorlan::app

#include "screens/ExplainRequestSheet.hpp"

#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QVBoxLayout>

#include <algorithm>

#include "theme/Components.hpp"

namespace vorlan::app {

using namespace theme;

ExplainRequestSheet::ExplainRequestSheet(const QString& request, QWidget* parent) : QDialog(parent) {
  setWindowTitle("보낼 내용");
  setWindowModality(Qt::WindowModal);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(24, 22, 24, 18);
  column->setSpacing(10);
  column->addWidget(label("보낼 내용", Text::title));
  column->addWidget(label("이 JSON이 그대로 전송됩니다. 폴더 이름 외에는 아무것도 없습니다.", Text::body));
  text_ = new QPlainTextEdit(request);
  text_->setObjectName("requestText");
  text_->setReadOnly(true);
  text_->setFont(figureFont(12));
  // Long paths wrap anywhere rather than hide behind a sideways scroll.
  text_->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  column->addWidget(text_, 1);
  auto* close = primaryButton("닫기");
  close->setObjectName("closeSheet");
  auto* row = new QHBoxLayout;
  row->addStretch();
  row->addWidget(close);
  column->addLayout(row);
  connect(close, &QPushButton::clicked, this, &QDialog::accept);
  resize(520, 400);
}

QString ExplainRequestSheet::request() const { return text_->toPlainText(); }

void ExplainRequestSheet::showEvent(QShowEvent* event) {
  // Never taller than the window it belongs to.
  if (QWidget* owner = parentWidget() ? parentWidget()->window() : nullptr)
    resize(std::min(520, owner->width() - 24), std::min(400, owner->height() - 24));
  QDialog::showEvent(event);
}

}  // namespace vorlan::app

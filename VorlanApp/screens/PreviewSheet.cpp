#include "screens/PreviewSheet.hpp"

#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <initializer_list>

#include "theme/Components.hpp"

namespace vorlan::app {

using namespace theme;

namespace {

// A titled list of short items, one bullet each.
QWidget* consentList(const char* title, std::initializer_list<const char*> items) {
  auto* list = new QWidget;
  auto* column = new QVBoxLayout(list);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(4);
  column->addWidget(label(QString::fromUtf8(title), Text::headline));
  for (const char* item : items) {
    // The bullet apart, so that a wrapped item keeps its indent.
    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    row->addWidget(label(QStringLiteral("•"), Text::body), 0, Qt::AlignTop);
    row->addWidget(label(QString::fromUtf8(item), Text::body), 1);
    column->addLayout(row);
  }
  return list;
}

}  // namespace

PreviewSheet::PreviewSheet(QWidget* parent) : QDialog(parent) {
  setWindowTitle("전송 내용");
  setWindowModality(Qt::WindowModal);
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 16);
  // The content scrolls, so the sheet fits over the smallest window; "닫기" stays in sight.
  auto* content = new QWidget;
  QVBoxLayout* column = scrollingColumn(content, 480);
  column->setSpacing(12);
  outer->addWidget(content, 1);
  column->addWidget(label("전송 내용", Text::title));
  column->addWidget(label(
      "Vorlan 진단은 무료입니다 — 대신 익명 스캔 통계가 시스템 데이터 연구에 사용됩니다.",
      Text::body));
  column->addWidget(consentList(
      "전송되는 것", {"디스크 용량 수치", "스캔 소요 시간",
                      "폴더별 용량·안전 등급 — 개인 폴더 이름은 <masked>로 가려집니다",
                      "측정 실패 항목", "무작위 설치 ID (기기·계정과 무관)"}));
  column->addWidget(consentList("전송되지 않는 것", {"파일 이름·내용", "계정 정보", "개인 폴더 이름"}));
  column->addWidget(
      label("전송 직후 리포트 화면에서 실제 전송된 JSON을 그대로 확인할 수 있습니다.", Text::muted));
  auto* close = primaryButton("닫기");
  auto* closeRow = new QHBoxLayout;
  closeRow->setContentsMargins(28, 0, 28, 0);
  closeRow->addStretch();
  closeRow->addWidget(close);
  outer->addLayout(closeRow);
  connect(close, &QPushButton::clicked, this, &QDialog::accept);
  resize(520, 560);
}

void PreviewSheet::showEvent(QShowEvent* event) {
  // Never taller than the window it belongs to.
  if (QWidget* owner = parentWidget() ? parentWidget()->window() : nullptr)
    resize(width(), std::min(560, owner->height() - 24));
  QDialog::showEvent(event);
}

}  // namespace vorlan::app

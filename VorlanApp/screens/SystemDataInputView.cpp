#include "screens/SystemDataInputView.hpp"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include "flow/AppFlow.hpp"
#include "flow/OpenSettings.hpp"
#include "network/Telemetry.hpp"
#include "report/Ledger.hpp"
#include "screens/PreviewSheet.hpp"
#include "theme/Components.hpp"

namespace vorlan::app {

using namespace theme;

SystemDataInputView::SystemDataInputView(AppFlow& flow, QWidget* parent)
    : QWidget(parent), flow_(flow), telemetryEnabled_(Telemetry::isEnabled()) {
  QVBoxLayout* column = scrollingColumn(this, 560);
  column->addStretch();
  column->addWidget(label("설정의 \"시스템 데이터\" 수치를 알려주세요", Text::title));
  column->addWidget(label(
      "애플이 이 수치를 앱에 공개하지 않아 Vorlan도 읽을 수 없습니다. 디스크 용량 등 나머지는 전부 자동 측정됩니다.",
      Text::body));
  column->addWidget(label(
      "스캔 결과가 그 수치 중 몇 GB를 규명했는지 정산해 드립니다. 모르면 건너뛰어도 됩니다.",
      Text::body));
  column->addWidget(label(
      "설정 > 일반 > 저장 공간에서 \"시스템 데이터\" 항목의 GB 수치를 확인하세요.", Text::muted));
  auto* openStorage = new QPushButton("저장 공간 설정 열기");
  asLink(openStorage);
  column->addWidget(openStorage, 0, Qt::AlignLeft);

  auto* figureRow = new QHBoxLayout;
  gbText_ = new QLineEdit;
  gbText_->setObjectName("figure");
  gbText_->setPlaceholderText("예: 113.19");
  gbText_->setFont(figureFont(16, QFont::DemiBold));
  gbText_->setFixedWidth(180);
  gbText_->setMinimumHeight(36);
  figureRow->addWidget(gbText_);
  figureRow->addWidget(label("GB", Text::figure));
  figureRow->addStretch();
  column->addLayout(figureRow);

  if (telemetryEnabled_) {
    auto* consentRow = new QHBoxLayout;
    auto* consent = new QCheckBox("익명 스캔 통계 공유에 동의합니다");
    consent->setObjectName("consent");
    consent->setChecked(flow_.telemetryConsented());
    auto* preview = new QPushButton("전송 내용 미리보기");
    asLink(preview);
    consentRow->addWidget(consent);
    consentRow->addSpacing(12);
    consentRow->addWidget(preview);
    consentRow->addStretch();
    column->addLayout(consentRow);
    connect(consent, &QCheckBox::toggled, &flow_, &AppFlow::setTelemetryConsented);
    connect(&flow_, &AppFlow::telemetryConsentedChanged, consent,
            [this, consent] { consent->setChecked(flow_.telemetryConsented()); });
    connect(preview, &QPushButton::clicked, this, &SystemDataInputView::showPreview);
  }

  column->addSpacing(8);
  auto* buttons = new QHBoxLayout;
  skip_ = new QPushButton("건너뛰고 스캔");
  asSecondary(skip_);
  start_ = primaryButton("이 수치로 스캔 시작");
  buttons->addWidget(skip_);
  buttons->addSpacing(8);
  buttons->addWidget(start_);
  buttons->addStretch();
  column->addLayout(buttons);
  column->addStretch();

  connect(openStorage, &QPushButton::clicked, this, [] {
    openSettings({"x-apple.systempreferences:com.apple.settings.Storage?Storage",
                  "x-apple.systempreferences:com.apple.settings.Storage",
                  "x-apple.systempreferences:"});
  });
  connect(gbText_, &QLineEdit::textChanged, this, &SystemDataInputView::updateButtons);
  connect(&flow_, &AppFlow::telemetryConsentedChanged, this, &SystemDataInputView::updateButtons);
  connect(skip_, &QPushButton::clicked, this, [this] {
    flow_.setSystemDataGB(std::nullopt);
    flow_.startScan();
  });
  connect(start_, &QPushButton::clicked, this, [this] {
    if (auto gb = figure()) {
      flow_.setSystemDataGB(gb);
      flow_.startScan();
    }
  });
  connect(&flow_, &AppFlow::scanErrorChanged, this, &SystemDataInputView::syncAlert);
  updateButtons();
  // After construction, so that the alert opens over the window this screen is placed in.
  QMetaObject::invokeMethod(this, &SystemDataInputView::syncAlert, Qt::QueuedConnection);
}

std::optional<double> SystemDataInputView::figure() const {
  const auto value = parseDecimalFigure(gbText_->text().toStdString());
  if (value && *value > 0) return value;
  return std::nullopt;
}

void SystemDataInputView::showPreview() {
  auto* sheet = new PreviewSheet(this);
  sheet->setAttribute(Qt::WA_DeleteOnClose);
  sheet->open();
}

void SystemDataInputView::updateButtons() {
  // With a back-end configured the diagnosis is given in return for the statistics: no scan
  // starts without consent. Without one, both buttons work freely.
  const bool consentMissing = telemetryEnabled_ && !flow_.telemetryConsented();
  skip_->setEnabled(!consentMissing);
  start_->setEnabled(!consentMissing && figure().has_value());
}

void SystemDataInputView::syncAlert() {
  const auto& error = flow_.scanError();
  if (error && !alert_) {
    alert_ = alert(this, "스캔 실패", *error);
    connect(alert_, &QMessageBox::finished, this, [this] {
      alert_ = nullptr;
      if (flow_.scanError()) flow_.setScanError(std::nullopt);
    });
    alert_->open();
  } else if (error && alert_) {
    alert_->setInformativeText(*error);
  } else if (!error && alert_) {
    alert_->setInformativeText({});
    alert_->close();
  }
}

}  // namespace vorlan::app

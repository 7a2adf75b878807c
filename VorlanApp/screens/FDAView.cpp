#include "screens/FDAView.hpp"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "flow/AppFlow.hpp"
#include "flow/OpenSettings.hpp"
#include "theme/Components.hpp"
#include "theme/Icons.hpp"

namespace vorlan::app {

using namespace theme;

FDAView::FDAView(AppFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
  QVBoxLayout* column = scrollingColumn(this, 520);
  column->addStretch();
  column->addWidget(new SymbolView("lock.shield", vlAccent, 44), 0, Qt::AlignLeft);
  column->addWidget(label("전체 디스크 접근 권한이 필요합니다", Text::title));
  column->addWidget(label(
      "숨겨진 캐시·개발 폴더의 크기를 읽기 위해서만 사용합니다. 읽기 전용이며, 아무것도 삭제하지 않습니다.",
      Text::body));
  column->addSpacing(4);
  for (const char* step : {"1. 아래 버튼으로 설정을 엽니다",
                           "2. 목록에서 Vorlan 스위치를 켜거나, + 버튼으로 Vorlan을 추가합니다",
                           "3. 권한이 켜지면 자동으로 다음 단계로 넘어갑니다"})
    column->addWidget(label(QString::fromUtf8(step), Text::body));
  column->addSpacing(8);
  auto* open = primaryButton("개인정보 보호 설정 열기");
  column->addWidget(open, 0, Qt::AlignLeft);

  auto* waiting = new QHBoxLayout;
  waiting->setSpacing(8);
  waiting->addWidget(new Spinner(16));
  waiting->addWidget(label("권한 부여를 기다리는 중...", Text::muted), 1);
  column->addLayout(waiting);
  column->addStretch();

  connect(open, &QPushButton::clicked, this, [] {
    openSettings({"x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles"});
  });
  connect(&poll_, &QTimer::timeout, this, [this] {
    if (flow_.fullDiskAccessGranted()) {
      poll_.stop();
      flow_.setStep(AppFlow::Step::systemDataInput);
    }
  });
  poll_.start(1000);
}

}  // namespace vorlan::app

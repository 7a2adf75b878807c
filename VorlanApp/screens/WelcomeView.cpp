#include "screens/WelcomeView.hpp"

#include <QVBoxLayout>

#include "flow/AppFlow.hpp"
#include "theme/Components.hpp"
#include "theme/Icons.hpp"

namespace vorlan::app {

using namespace theme;

WelcomeView::WelcomeView(AppFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
  QVBoxLayout* column = scrollingColumn(this, 520);
  column->addStretch();
  column->addWidget(new SymbolView("checkmark.shield", vlAccent, 56), 0, Qt::AlignHCenter);
  column->addSpacing(4);
  for (auto [text, style] : {std::pair{"Vorlan", Text::largeTitle},
                             {"'디스크가 거의 가득 찼습니다' 경고, 여기서 끝내세요", Text::title},
                             {"자세히 진단해드립니다. 동의 없이는 절대 삭제하지 않습니다.", Text::body}}) {
    QLabel* l = label(QString::fromUtf8(text), style);
    l->setAlignment(Qt::AlignHCenter);
    column->addWidget(l);
  }
  column->addSpacing(12);
  auto* start = primaryButton("진단 시작");
  column->addWidget(start, 0, Qt::AlignHCenter);
  column->addStretch();

  // Whoever granted access before goes straight to the figure.
  connect(start, &QPushButton::clicked, this, [this] {
    flow_.setStep(flow_.fullDiskAccessGranted() ? AppFlow::Step::systemDataInput
                                                : AppFlow::Step::fullDiskAccess);
  });
}

}  // namespace vorlan::app

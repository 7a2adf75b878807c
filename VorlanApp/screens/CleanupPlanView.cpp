#include "screens/CleanupPlanView.hpp"

#include <QPushButton>
#include <QVBoxLayout>

#include "flow/AppFlow.hpp"
#include "theme/Components.hpp"

namespace vorlan::app {

CleanupPlanView::CleanupPlanView(AppFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
  QVBoxLayout* column = theme::scrollingColumn(this, 640);
  auto* back = new QPushButton("뒤로");
  theme::asLink(back);
  column->addWidget(back, 0, Qt::AlignLeft);
  column->addStretch();
  connect(back, &QPushButton::clicked, this, [this] { flow_.setStep(AppFlow::Step::report); });
}

}  // namespace vorlan::app

#include "screens/CleanupPlanView.hpp"

#include <QLabel>
#include <QVBoxLayout>

#include "flow/AppFlow.hpp"

namespace vorlan::app {

CleanupPlanView::CleanupPlanView(AppFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(new QLabel(QStringLiteral("CleanupPlanView"), this));
}

}  // namespace vorlan::app

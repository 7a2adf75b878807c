#include "screens/SystemDataInputView.hpp"

#include <QLabel>
#include <QVBoxLayout>

#include "flow/AppFlow.hpp"

namespace vorlan::app {

SystemDataInputView::SystemDataInputView(AppFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(new QLabel(QStringLiteral("SystemDataInputView"), this));
}

}  // namespace vorlan::app

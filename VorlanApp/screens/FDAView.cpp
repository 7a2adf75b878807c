#include "screens/FDAView.hpp"

#include <QLabel>
#include <QVBoxLayout>

#include "flow/AppFlow.hpp"

namespace vorlan::app {

FDAView::FDAView(AppFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(new QLabel(QStringLiteral("FDAView"), this));
}

}  // namespace vorlan::app

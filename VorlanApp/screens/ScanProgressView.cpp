#include "screens/ScanProgressView.hpp"

#include <QLabel>
#include <QVBoxLayout>

#include "flow/AppFlow.hpp"

namespace vorlan::app {

ScanProgressView::ScanProgressView(AppFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(new QLabel(QStringLiteral("ScanProgressView"), this));
}

}  // namespace vorlan::app

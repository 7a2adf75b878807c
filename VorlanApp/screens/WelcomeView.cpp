#include "screens/WelcomeView.hpp"

#include <QLabel>
#include <QVBoxLayout>

#include "flow/AppFlow.hpp"

namespace vorlan::app {

WelcomeView::WelcomeView(AppFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(new QLabel(QStringLiteral("WelcomeView"), this));
}

}  // namespace vorlan::app

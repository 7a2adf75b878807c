#include "screens/ContentView.hpp"

#include "flow/AppFlow.hpp"

namespace vorlan::app {

ContentView::ContentView(AppFlow& flow, QWidget* parent) : QMainWindow(parent), flow_(flow) {
  setWindowTitle(QStringLiteral("Vorlan"));
  setMinimumSize(560, 440);
}

void ContentView::showStep() {}

}  // namespace vorlan::app

// Vorlan, the desktop app: one window over the application flow.
#include <QApplication>

#include "flow/AppFlow.hpp"
#include "screens/ContentView.hpp"
#include "theme/Theme.hpp"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Vorlan"));
  vorlan::app::theme::install(app);
  vorlan::app::AppFlow flow(vorlan::app::realEnvironment());
  vorlan::app::ContentView window(flow);
  window.resize(800, 600);
  window.show();
  return app.exec();
}

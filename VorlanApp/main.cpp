// Vorlan, the desktop app: one window over the application flow.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QApplication>
#include <QMessageBox>
#include <QSocketNotifier>

#include <cstdlib>

#include "Version.hpp"
#include "flow/AppFlow.hpp"
#include "platform/HomeFolder.hpp"
#include "screens/ContentView.hpp"
#include "theme/Theme.hpp"

namespace {

int signalPipe[2] = {-1, -1};

void onTerminationSignal(int) {
  const char byte = 1;
  [[maybe_unused]] auto written = ::write(signalPipe[1], &byte, 1);
}

// SIGTERM (a logout, `kill`) and SIGINT end the app as closing its window does: the event
// loop returns and the flow's destructor stops a running scan and its du. A signal handler
// may only write to a pipe; the event loop reads the other end.
void quitOnTerminationSignals(QApplication& app) {
  if (::pipe(signalPipe) != 0) return;
  for (int fd : signalPipe) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
  auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
  QObject::connect(notifier, &QSocketNotifier::activated, &app, [] { QApplication::quit(); });
  struct sigaction action = {};
  action.sa_handler = onTerminationSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGTERM, &action, nullptr);
  ::sigaction(SIGINT, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Vorlan"));
  QApplication::setApplicationVersion(QString::fromUtf8(vorlan::Telemetry::appVersion));
  // Ties the window to the installed desktop entry, and so to its icon.
  QGuiApplication::setDesktopFileName(QStringLiteral(VORLAN_APP_ID));
  vorlan::app::theme::install(app);
  quitOnTerminationSignals(app);

  // A program that moves folders never guesses another home when HOME is unusable.
  const vorlan::HomeFolder home = vorlan::homeFolderFrom(std::getenv("HOME"));
  if (!home.problem.empty()) {
    QMessageBox::critical(nullptr, QStringLiteral("Vorlan"), QString::fromStdString(home.problem));
    return 1;
  }

  // The flow starts the launch work in the background; the window shows at once. The window
  // goes first, then the flow, whose destructor stops a running scan and joins its thread.
  vorlan::app::AppFlow flow(vorlan::app::realEnvironment());
  vorlan::app::ContentView window(flow);
  window.resize(800, 600);
  window.show();
  return app.exec();
}

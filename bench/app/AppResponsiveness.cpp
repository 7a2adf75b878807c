// How late the window's event loop answers while a scan runs: a 10 ms timer on the main thread
// records by how much each tick came late, from the scan's start to its end, with the real
// window and its screens showing. Prints the 50th and 99th percentiles and the worst tick.
//
// usage: vorlan_app_bench HOME
#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "flow/AppFlow.hpp"
#include "screens/ContentView.hpp"
#include "theme/Theme.hpp"

int main(int argc, char** argv) {
  if (argc != 2) {
    fmt::print(stderr, "usage: vorlan_app_bench HOME\n");
    return 2;
  }
  QApplication app(argc, argv);
  vorlan::app::theme::install(app);
  vorlan::app::AppEnvironment env = vorlan::app::realEnvironment();
  env.home = argv[1];
  env.environment["VORLAN_UPDATE_ENDPOINT"] = "";
  env.environment["VORLAN_TELEMETRY_URL"] = "";
  vorlan::app::AppFlow flow(std::move(env));
  vorlan::app::ContentView window(flow);
  window.resize(800, 600);
  window.show();

  constexpr int intervalMs = 10;
  std::vector<double> lateness;  // milliseconds
  QElapsedTimer clock;
  qint64 lastTick = 0;
  QTimer ticker;
  ticker.setTimerType(Qt::PreciseTimer);
  ticker.setInterval(intervalMs);
  QObject::connect(&ticker, &QTimer::timeout, [&] {
    const qint64 now = clock.nsecsElapsed();
    lateness.push_back(std::max(0.0, double(now - lastTick) / 1e6 - intervalMs));
    lastTick = now;
  });

  size_t reports = 0;
  QObject::connect(&flow, &vorlan::app::AppFlow::progressChanged, [&] { ++reports; });
  QTimer::singleShot(0, [&] {
    // As the user gets there: the input screen first, then the scan.
    flow.setStep(vorlan::app::AppFlow::Step::systemDataInput);
    QObject::connect(&flow, &vorlan::app::AppFlow::stepChanged, [&] {
      if (flow.step() != vorlan::app::AppFlow::Step::scanning) app.quit();
    });
    clock.start();
    lastTick = 0;
    ticker.start();
    flow.startScan();
  });
  app.exec();
  ticker.stop();

  if (lateness.empty() || !flow.result()) {
    fmt::print(stderr, "the scan did not finish\n");
    return 1;
  }
  std::sort(lateness.begin(), lateness.end());
  auto percentile = [&](double p) { return lateness[size_t(p / 100.0 * double(lateness.size() - 1))]; };
  fmt::print("scan {:.1f} s, {} findings, {} progress reports, {} timer ticks\n", flow.scanDuration(),
             flow.result()->findings.size(), reports, lateness.size());
  fmt::print("timer lateness: p50 {:.2f} ms, p99 {:.2f} ms, max {:.2f} ms\n", percentile(50),
             percentile(99), lateness.back());
  return 0;
}

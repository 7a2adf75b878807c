// How late the window's event loop answers while work runs behind it: a 10 ms timer on the main
// thread records by how much each tick came late, with the real window and its screens showing.
// Prints the 50th and 99th percentiles and the worst tick.
//
//   scan: from the scan's start to the report.
//   plan: the cleanup screen loading its plan (and how soon the first row shows), then ticking
//         rows of a plan of 2,000 rows: the time from the tick until the window has repainted.
//
// usage: vorlan_app_bench HOME [scan|plan]
#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "flow/AppFlow.hpp"
#include "screens/ContentView.hpp"
#include "theme/Theme.hpp"

namespace {

using vorlan::app::AppFlow;

// A 10 ms timer that records its own lateness while it runs.
struct LatenessTimer {
  static constexpr int intervalMs = 10;
  std::vector<double> lateness;  // milliseconds
  QElapsedTimer clock;
  qint64 lastTick = 0;
  QTimer ticker;

  LatenessTimer() {
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setInterval(intervalMs);
    QObject::connect(&ticker, &QTimer::timeout, [this] {
      const qint64 now = clock.nsecsElapsed();
      lateness.push_back(std::max(0.0, double(now - lastTick) / 1e6 - intervalMs));
      lastTick = now;
    });
  }
  void start() {
    clock.start();
    lastTick = 0;
    ticker.start();
  }
  void print() {
    ticker.stop();
    if (lateness.empty()) return;
    std::sort(lateness.begin(), lateness.end());
    auto percentile = [&](double p) { return lateness[size_t(p / 100.0 * double(lateness.size() - 1))]; };
    fmt::print("timer lateness: p50 {:.2f} ms, p99 {:.2f} ms, max {:.2f} ms ({} ticks)\n", percentile(50),
               percentile(99), lateness.back(), lateness.size());
  }
};

int benchScan(QApplication& app, AppFlow& flow) {
  LatenessTimer timer;
  size_t reports = 0;
  QObject::connect(&flow, &AppFlow::progressChanged, [&] { ++reports; });
  QTimer::singleShot(0, [&] {
    // As the user gets there: the input screen first, then the scan.
    flow.setStep(AppFlow::Step::systemDataInput);
    QObject::connect(&flow, &AppFlow::stepChanged, [&] {
      if (flow.step() != AppFlow::Step::scanning) app.quit();
    });
    timer.start();
    flow.startScan();
  });
  app.exec();
  if (timer.lateness.empty() || !flow.result()) {
    fmt::print(stderr, "the scan did not finish\n");
    return 1;
  }
  fmt::print("scan {:.1f} s, {} findings, {} progress reports\n", flow.scanDuration(),
             flow.result()->findings.size(), reports);
  timer.print();
  return 0;
}

int benchPlan(QApplication& app, AppFlow& flow) {
  vorlan::app::CleanupFlow& cleanup = flow.cleanup();
  LatenessTimer timer;
  QElapsedTimer loading;
  double firstRowMs = -1;
  QObject::connect(&cleanup, &vorlan::app::CleanupFlow::rowArrived, [&] {
    if (firstRowMs < 0) firstRowMs = double(loading.nsecsElapsed()) / 1e6;
  });
  QObject::connect(&cleanup, &vorlan::app::CleanupFlow::isLoadingChanged, [&] {
    if (!cleanup.isLoading()) app.quit();
  });
  QTimer::singleShot(0, [&] {
    timer.start();
    loading.start();
    flow.setStep(AppFlow::Step::cleanupPlan);  // the screen loads its plan as it appears
  });
  app.exec();
  fmt::print("plan loaded in {:.2f} s, {} rows, first row after {:.0f} ms\n",
             double(loading.nsecsElapsed()) / 1e9, cleanup.items().size(), firstRowMs);
  timer.print();

  // Ticking in a plan of 2,000 rows: from the tick until the window has been repainted.
  std::vector<vorlan::CleanupItem> rows;
  for (int i = 0; i < 2000; ++i) {
    vorlan::CleanupItem item;
    item.name = fmt::format("com.example.app{:04}", i);
    item.path = "Library/Caches/" + item.name;
    item.bytes = int64_t{3'000'000'000} - i * int64_t{1'000'000};
    item.verdict = vorlan::CleanupVerdict::regenerable;
    item.checked = true;
    item.purgeImmediately = true;
    item.reason = "앱이 다시 만드는 캐시";
    item.consequence = "앱이 다시 만듭니다";
    rows.push_back(std::move(item));
  }
  cleanup.showPlan(rows);
  QApplication::processEvents();
  std::vector<double> ticks;
  for (int i = 0; i < 200; ++i) {
    QElapsedTimer tick;
    tick.start();
    cleanup.toggle(rows[size_t(i % 20)].path);
    QApplication::processEvents();  // the model, the figures and the repaint of the window
    ticks.push_back(double(tick.nsecsElapsed()) / 1e6);
  }
  std::sort(ticks.begin(), ticks.end());
  fmt::print("tick in a plan of {} rows: p50 {:.2f} ms, p99 {:.2f} ms, max {:.2f} ms\n", rows.size(),
             ticks[ticks.size() / 2], ticks[ticks.size() * 99 / 100], ticks.back());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc == 3 ? argv[2] : "scan";
  if (argc < 2 || argc > 3 || (mode != "scan" && mode != "plan")) {
    fmt::print(stderr, "usage: vorlan_app_bench HOME [scan|plan]\n");
    return 2;
  }
  QApplication app(argc, argv);
  vorlan::app::theme::install(app);
  vorlan::app::AppEnvironment env = vorlan::app::realEnvironment();
  env.home = argv[1];
  env.environment["VORLAN_UPDATE_ENDPOINT"] = "";
  env.environment["VORLAN_TELEMETRY_URL"] = "";
  AppFlow flow(std::move(env));
  vorlan::app::ContentView window(flow);
  window.resize(800, 600);
  window.show();
  return mode == "scan" ? benchScan(app, flow) : benchPlan(app, flow);
}

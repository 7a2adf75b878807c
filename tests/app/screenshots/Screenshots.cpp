// Renders each screen of the app (light and dark, 800×600 and the minimum 560×440) into PNG
// files named screen-appearance-size.png. Fails when a picture cannot be made or the Korean
// face is missing, since every screenshot would then show boxes.
#include <QApplication>
#include <QDir>
#include <QFontMetrics>
#include <QMessageBox>
#include <QPainter>
#include <QTextStream>
#include <QVBoxLayout>

#include <functional>
#include <memory>

#include "app/FlowTestSupport.hpp"
#include "app/ScreenTestSupport.hpp"
#include "screens/ContentView.hpp"
#include "screens/MoveToApplicationsView.hpp"
#include "screens/TrashDMGView.hpp"
#include "screens/UpdateBanner.hpp"
#include "screens/FDAView.hpp"
#include "screens/PreviewSheet.hpp"
#include "screens/ReportView.hpp"
#include "screens/ScanProgressView.hpp"
#include "screens/SystemDataInputView.hpp"
#include "screens/WelcomeView.hpp"
#include "support/TestSupport.hpp"

using namespace vorlan;
using namespace vorlan::app;

namespace {

// The window's picture with any sheet or alert over it drawn in its middle, as the user sees it.
QPixmap picture(QWidget& window) {
  QPixmap shot = window.grab();
  for (QWidget* child : window.findChildren<QDialog*>()) {
    if (!child->isVisible()) continue;
    QPainter p(&shot);
    p.fillRect(shot.rect(), QColor(0, 0, 0, 60));
    const QPixmap sheet = child->grab();
    const QPoint at((shot.width() - sheet.width()) / 2, std::max(0, (shot.height() - sheet.height()) / 2));
    p.drawPixmap(at, sheet);
    p.setPen(QColor(0, 0, 0, 90));
    p.drawRect(QRect(at, sheet.size()).adjusted(0, 0, -1, -1));
  }
  return shot;
}

}  // namespace

int main(int argc, char** argv) {
  // The offscreen platform says for every window that it cannot size it to its hints.
  qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
    if (!message.contains("propagateSizeHints")) QTextStream(stderr) << message << "\n";
  });
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  theme::install(app);
  QTextStream err(stderr);
  if (argc < 2) {
    err << "usage: vorlan_screenshots OUTPUT_FOLDER\n";
    return 2;
  }
  const QString folder = QString::fromLocal8Bit(argv[1]);
  QDir().mkpath(folder);
  if (!QFontMetrics(app.font()).inFontUcs4(U'가')) {
    err << "the application font has no Hangul: install fonts-noto-cjk\n";
    return 1;
  }

  vorlan::test::TempDir home;
  // Saving into a Desktop that is a plain file fails, as the save error picture needs.
  vorlan::test::writeFile(home / "Desktop", "not a folder");
  qunsetenv("VORLAN_TELEMETRY_URL");
  qunsetenv("VORLAN_TELEMETRY_ANON_KEY");

  using Make = std::function<std::unique_ptr<QWidget>(AppFlow&)>;
  const auto withBackEnd = [](bool on) {
    if (on) {
      qputenv("VORLAN_TELEMETRY_URL", "http://127.0.0.1:9");
      qputenv("VORLAN_TELEMETRY_ANON_KEY", "key");
    } else {
      qunsetenv("VORLAN_TELEMETRY_URL");
      qunsetenv("VORLAN_TELEMETRY_ANON_KEY");
    }
  };
  const std::pair<const char*, Make> screens[] = {
      {"welcome", [](AppFlow& f) { return std::make_unique<WelcomeView>(f); }},
      {"permission", [](AppFlow& f) { return std::make_unique<FDAView>(f); }},
      {"input", [&](AppFlow& f) {
         withBackEnd(false);
         return std::make_unique<SystemDataInputView>(f);
       }},
      {"input-consent", [&](AppFlow& f) {
         withBackEnd(true);
         auto view = std::make_unique<SystemDataInputView>(f);
         withBackEnd(false);
         return view;
       }},
      {"preview-sheet", [&](AppFlow& f) {
         withBackEnd(true);
         auto view = std::make_unique<SystemDataInputView>(f);
         withBackEnd(false);
         view->showPreview();
         return view;
       }},
      {"scan-failed", [](AppFlow& f) {
         f.setScanError(QStringLiteral("스캔에 실패했습니다: du: 권한이 없습니다"));
         return std::make_unique<SystemDataInputView>(f);
       }},
      {"scanning", [](AppFlow& f) {
         auto view = std::make_unique<ScanProgressView>(f);
         view->showProgress(ScanProgress{
             1, "규칙 경로 측정 중 (37/90)",
             "Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw.very.long.name", 0.41});
         return view;
       }},
      {"scanning-waiting", [](AppFlow& f) { return std::make_unique<ScanProgressView>(f); }},
      {"report", [](AppFlow& f) {
         f.applyDebugReportFixture();
         return std::make_unique<ReportView>(f);
       }},
      {"report-no-figure", [](AppFlow& f) {
         f.applyDebugReportFixture();
         f.setSystemDataGB(std::nullopt);
         return std::make_unique<ReportView>(f);
       }},
      {"save-error", [](AppFlow& f) {
         f.applyDebugReportFixture();
         auto view = std::make_unique<ReportView>(f);
         view->save();
         return view;
       }},
      // The install sheets over the window, and the update strip over a screen. The flows of
      // these pictures run from a disk image that is not there, so the move is offered.
      {"move-sheet", [](AppFlow& f) { return std::make_unique<ContentView>(f); }},
      {"move-sheet-moving", [](AppFlow& f) {
         auto window = std::make_unique<ContentView>(f);
         // Behind the window's own queued opening of the sheet.
         QMetaObject::invokeMethod(window.get(), [w = window.get()] { w->moveSheet()->setMoving(true); },
                                   Qt::QueuedConnection);
         return window;
       }},
      {"move-sheet-error", [](AppFlow& f) {
         auto window = std::make_unique<ContentView>(f);
         QMetaObject::invokeMethod(window.get(), [w = window.get()] {
           w->moveSheet()->move();
           app::test::waitUntil([w] { return !w->moveSheet()->error().isEmpty(); });
         }, Qt::QueuedConnection);
         return window;
       }},
      {"trash-sheet", [](AppFlow& f) {
         f.setShowMoveSheet(false);
         f.setDmgToTrash(TrashCandidate{QStringLiteral("/Users/me/Downloads/Vorlan-1.4.0.dmg")});
         return std::make_unique<ContentView>(f);
       }},
      {"trash-sheet-error", [](AppFlow& f) {
         f.setShowMoveSheet(false);
         f.setDmgToTrash(TrashCandidate{QStringLiteral("/Users/me/Downloads/Vorlan-1.4.0.dmg")});
         auto window = std::make_unique<ContentView>(f);
         QMetaObject::invokeMethod(window.get(), [w = window.get()] {
           w->trashSheet()->trash();
           app::test::waitUntil([w] { return !w->trashSheet()->error().isEmpty(); });
         }, Qt::QueuedConnection);
         return window;
       }},
      {"update-banner", [](AppFlow& f) {
         // The window's column as ContentView lays it out, with the strip that a found update
         // brings (this picture's flow reaches no network).
         f.applyDebugReportFixture();
         auto column = std::make_unique<QWidget>();
         auto* layout = new QVBoxLayout(column.get());
         layout->setContentsMargins(0, 0, 0, 0);
         layout->setSpacing(0);
         layout->addWidget(new UpdateBanner(UpdateInfo{"1.4.0", "https://example.test/v1.4.0"}, [] {}));
         layout->addWidget(new ReportView(f), 1);
         return column;
       }},
  };

  int failures = 0, written = 0;
  for (auto appearance : {theme::Appearance::light, theme::Appearance::dark}) {
    theme::setAppearance(appearance);
    const char* tone = appearance == theme::Appearance::dark ? "dark" : "light";
    for (QSize size : {QSize(800, 600), QSize(560, 440)}) {
      for (const auto& [name, make] : screens) {
        AppFlow flow(app::test::screenEnvironment(home.path()));
        std::unique_ptr<QWidget> view = make(flow);
        app::test::showAt(*view, size);
        QApplication::processEvents();
        const QString file = QStringLiteral("%1/%2-%3-%4x%5.png")
                                 .arg(folder, QString::fromUtf8(name), QString::fromUtf8(tone))
                                 .arg(size.width())
                                 .arg(size.height());
        if (picture(*view).save(file)) {
          ++written;
        } else {
          err << "could not write " << file << "\n";
          ++failures;
        }
      }
    }
  }
  // The whole report in one tall picture per appearance, for reading every card at once.
  for (auto appearance : {theme::Appearance::light, theme::Appearance::dark}) {
    theme::setAppearance(appearance);
    AppFlow flow(app::test::screenEnvironment(home.path()));
    flow.applyDebugReportFixture();
    ReportView view(flow);
    app::test::showAt(view, QSize(800, 2400));
    const QString file = QStringLiteral("%1/report-whole-%2.png")
                             .arg(folder, appearance == theme::Appearance::dark ? "dark" : "light");
    if (view.grab().save(file)) ++written; else ++failures;
  }
  err << written << " screenshots in " << folder << "\n";
  return failures == 0 ? 0 : 1;
}

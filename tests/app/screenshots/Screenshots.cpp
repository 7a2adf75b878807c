// Renders each screen of the app (light and dark, 800×600 and the minimum 560×440) into PNG
// files named screen-appearance-size.png. Fails when a picture cannot be made or the Korean
// face is missing, since every screenshot would then show boxes.
#include <QApplication>
#include <QDir>
#include <QFontMetrics>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QTextStream>
#include <QVBoxLayout>

#include <fmt/format.h>

#include <functional>
#include <memory>

#include "app/FlowTestSupport.hpp"
#include "app/ScreenTestSupport.hpp"
#include "cleanup/CleanupCopy.hpp"
#include "quarantine/Quarantine.hpp"
#include "screens/CleanupPlanView.hpp"
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

// A plan of `count` rows, largest first, in every verdict and with words of every length.
std::vector<CleanupItem> fixturePlan(int count) {
  struct Kind {
    const char* parent;
    const char* name;
    CleanupVerdict verdict;
    bool immediate;
    const char* what;
    std::string_view reason;
    std::string_view consequence;
  };
  const Kind kinds[] = {
      {"Library/Caches", "com.example.browser", CleanupVerdict::regenerable, true, "브라우저가 받아 둔 웹 페이지 조각",
       "지워도 다시 만들어집니다", CleanupCopy::regenerable},
      {"Library/Application Support", "com.example.oldeditor", CleanupVerdict::orphan, false, "",
       "주인을 찾지 못했습니다", CleanupCopy::orphan},
      {"Library/Developer/Xcode/DerivedData", "Project-abcdefghijklmnop", CleanupVerdict::stale, false,
       "빌드할 때 생기는 중간 결과물", "212일째 바뀌지 않았습니다", CleanupCopy::staleData},
      {"Library/Group Containers", "group.com.example.notes", CleanupVerdict::needsReview, false,
       "메모 앱이 여러 기기와 나누는 자료", "확인이 필요합니다", CleanupCopy::reviewDefault},
      {"Library/Application Support", "com.example.music", CleanupVerdict::inUse, false, "", "지금 실행 중입니다",
       CleanupCopy::inUse},
      {"Library/Application Support", "MobileSync", CleanupVerdict::keep, false, "기기 백업 — 지우면 복구할 수 없습니다",
       "직접 지우세요", CleanupCopy::keep},
      {".cache", "io.example.modeltool", CleanupVerdict::unknown, false, "", "아직 무엇인지 모릅니다",
       CleanupCopy::unknown},
      {".gradle/caches", "modules-2", CleanupVerdict::regenerable, false, "Gradle이 받아 둔 라이브러리",
       "지워도 다시 만들어집니다", CleanupCopy::regenerableHeld},
  };
  std::vector<CleanupItem> items;
  for (int i = 0; i < count; ++i) {
    const Kind& k = kinds[i % std::size(kinds)];
    CleanupItem item;
    item.name = i < static_cast<int>(std::size(kinds)) ? k.name : fmt::format("{}.{}", k.name, i);
    item.path = fmt::format("{}/{}", k.parent, item.name);
    item.bytes = 12'300'000'000 - static_cast<int64_t>(i) * 61'000'000;
    item.verdict = k.verdict;
    item.checked = isCheckedByDefault(k.verdict);
    item.purgeImmediately = k.immediate;
    item.what = k.what;
    item.reason = k.reason;
    item.consequence = k.consequence;
    items.push_back(std::move(item));
  }
  return items;
}

// Three batches: one that goes tomorrow, one whose restore left a folder behind, one new.
void fillQuarantine(const std::filesystem::path& home, QuarantineStore& store, int64_t now) {
  const Quarantine quarantine(Quarantine::defaultRoot(home), home);
  const auto make = [&](std::vector<std::string> paths, int64_t when) {
    for (const auto& path : paths) vorlan::test::allocateFile(home / path / "data", 410'000'000);
    return quarantine.move(paths, when);
  };
  make({"Library/Caches/com.example.browser", "Library/Application Support/com.example.oldeditor"},
       now - 6 * 86'400);
  const auto partly = make({".cache/io.example.modeltool", ".gradle/caches/modules-2"}, now - 86'400);
  make({"Library/Developer/Xcode/DerivedData/Project-abcdefghijklmnop", "Library/Caches/com.example.maps",
        ".npm/_cacache"},
       now);
  vorlan::test::writeFile(home / ".gradle/caches/modules-2/new", "made since");
  store.addFreedBytes(2'400'000'000);  // as if an earlier deletion had emptied at once
  store.reload();
  store.restore(partly);
  app::test::waitUntil([&] { return !store.restoringID(); });
}

// The cleanup screen in its states, each on a home of its own.
void cleanupShots(const QString& folder, int& written, int& failures) {
  enum class Scene { plan, explainOffer, deleting, skipped, quarantine, requestSheet };
  const std::pair<const char*, Scene> scenes[] = {
      {"cleanup-plan", Scene::plan},         {"cleanup-explain-offer", Scene::explainOffer},
      {"cleanup-deleting", Scene::deleting}, {"cleanup-skipped", Scene::skipped},
      {"cleanup-quarantine", Scene::quarantine}, {"explain-request-sheet", Scene::requestSheet},
  };
  for (auto appearance : {theme::Appearance::light, theme::Appearance::dark}) {
    theme::setAppearance(appearance);
    const char* tone = appearance == theme::Appearance::dark ? "dark" : "light";
    for (QSize size : {QSize(800, 600), QSize(560, 440)}) {
      for (const auto& [name, scene] : scenes) {
        vorlan::test::TempDir home;
        const AppEnvironment env = app::test::screenEnvironment(home.path());
        AppFlow flow(env);
        CleanupFlow& cleanup = flow.cleanup();
        if (scene == Scene::quarantine) fillQuarantine(home.path(), flow.quarantineStore(), env.now());
        CleanupPlanView view(flow);
        app::test::showAt(view, size);
        app::test::waitUntil([&] { return !cleanup.isLoading() && !flow.quarantineStore().sweepInFlight(); });
        if (scene != Scene::explainOffer && scene != Scene::requestSheet) cleanup.declineExplain();
        cleanup.showPlan(fixturePlan(scene == Scene::quarantine ? 12 : 200));
        std::unique_ptr<app::test::HeldStoreLock> busy;
        if (scene == Scene::deleting) {
          // Another run holds the store, so the deletion waits where the picture can see it.
          busy = std::make_unique<app::test::HeldStoreLock>(home.path());
          view.findChild<QPushButton*>("deleteButton")->click();
        }
        if (scene == Scene::skipped)
          cleanup.setSkippedInUse({"Library/Application Support/com.example.music", "Library/Caches/com.example.browser"});
        if (scene == Scene::requestSheet) view.findChild<QPushButton*>("previewRequest")->click();
        QApplication::processEvents();
        const QString file = QStringLiteral("%1/%2-%3-%4x%5.png")
                                 .arg(folder, QString::fromUtf8(name), QString::fromUtf8(tone))
                                 .arg(size.width())
                                 .arg(size.height());
        if (picture(view).save(file)) ++written; else ++failures;
        busy.reset();
        app::test::waitUntil([&] { return !cleanup.isExecuting(); });
      }
    }
  }
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
  cleanupShots(folder, written, failures);
  err << written << " screenshots in " << folder << "\n";
  return failures == 0 ? 0 : 1;
}

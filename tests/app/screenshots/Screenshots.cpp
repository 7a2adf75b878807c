// Renders each screen of the app (light and dark, 800×600 and the minimum 560×440) into PNG
// files named screen-appearance-size.png. Fails when a picture cannot be made or the Korean
// face is missing, since every screenshot would then show boxes.
#include <QApplication>
#include <QDir>
#include <QFontMetrics>
#include <QPainter>
#include <QTextStream>
#include <QVBoxLayout>

#include <fmt/format.h>

#include "app/AppTestSupport.hpp"
#include "cleanup/CleanupCopy.hpp"
#include "quarantine/Quarantine.hpp"
#include "screens/CleanupPlanView.hpp"
#include "screens/ContentView.hpp"
#include "screens/MoveToApplicationsView.hpp"
#include "screens/TrashDMGView.hpp"
#include "screens/UpdateBanner.hpp"
#include "screens/FDAView.hpp"
#include "screens/ReportView.hpp"
#include "screens/ScanProgressView.hpp"
#include "screens/SystemDataInputView.hpp"
#include "screens/WelcomeView.hpp"

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
  struct Kind { const char *parent, *name; CleanupVerdict verdict; bool immediate; const char *what, *reason;
                std::string_view consequence; };
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
    const std::string name = i < static_cast<int>(std::size(kinds)) ? k.name : fmt::format("{}.{}", k.name, i);
    items.push_back({.name = name, .path = fmt::format("{}/{}", k.parent, name),
                     .bytes = 12'300'000'000 - static_cast<int64_t>(i) * 61'000'000, .verdict = k.verdict,
                     .checked = isCheckedByDefault(k.verdict), .reason = k.reason, .deletePaths = {}, .what = k.what,
                     .consequence = std::string(k.consequence), .purgeImmediately = k.immediate});
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
  make({"Library/Caches/com.example.browser", "Library/Application Support/com.example.oldeditor"}, now - 6 * 86'400);
  const auto partly = make({".cache/io.example.modeltool", ".gradle/caches/modules-2"}, now - 86'400);
  make({"Library/Developer/Xcode/DerivedData/Project-abcdefghijklmnop", "Library/Caches/com.example.maps",
        ".npm/_cacache"}, now);
  vorlan::test::writeFile(home / ".gradle/caches/modules-2/new", "made since");
  store.addFreedBytes(2'400'000'000);  // as if an earlier deletion had emptied at once
  store.reload();
  store.restore(partly);
  app::test::waitUntil([&] { return !store.restoringID(); });
}

// Where a scene is made: its flow, home and window size, and what it leaves for after its picture.
struct Scene {
  AppFlow& flow;
  const std::filesystem::path& home;
  QSize size;
  std::unique_ptr<app::test::HeldStoreLock> busy;  // another run's lock on the store
};

// The cleanup screen, loaded, with a plan of `rows` rows; the explain offer declined unless kept.
std::unique_ptr<CleanupPlanView> cleanupScreen(Scene& s, int rows, bool keepOffer = false) {
  auto view = std::make_unique<CleanupPlanView>(s.flow);
  app::test::showAt(*view, s.size);
  app::test::waitUntil([&] { return !s.flow.cleanup().isLoading() && !s.flow.quarantineStore().sweepInFlight(); });
  if (!keepOffer) s.flow.cleanup().declineExplain();
  s.flow.cleanup().showPlan(fixturePlan(rows));
  return view;
}

// The statistics back-end is configured while the input screen is made.
std::unique_ptr<SystemDataInputView> inputWithBackEnd(AppFlow& f) {
  const app::test::ScopedEnv on({{"VORLAN_TELEMETRY_URL", "http://127.0.0.1:9"}, {"VORLAN_TELEMETRY_ANON_KEY", "key"}});
  return std::make_unique<SystemDataInputView>(f);
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
  const app::test::ScopedEnv noBackEnd({{"VORLAN_TELEMETRY_URL", std::nullopt}, {"VORLAN_TELEMETRY_ANON_KEY", std::nullopt}});

  const auto report = [](AppFlow& f) {
    f.applyDebugReportFixture();
    return std::make_unique<ReportView>(f);
  };
  const auto trashOffer = [](AppFlow& f) {
    f.setShowMoveSheet(false);
    f.setDmgToTrash(TrashCandidate{QStringLiteral("/Users/me/Downloads/Vorlan-1.4.0.dmg")});
    return std::make_unique<ContentView>(f);
  };
  // Runs `step` on the window behind its own queued opening of the sheet.
  const auto afterSheetOpens = [](std::unique_ptr<ContentView> window, std::function<void(ContentView*)> step) {
    QMetaObject::invokeMethod(window.get(), [w = window.get(), step] { step(w); }, Qt::QueuedConnection);
    return window;
  };
  // `whole`: the whole height at 800 wide, for reading every card at once.
  struct Shot { const char* name; std::function<std::unique_ptr<QWidget>(Scene&)> make; bool whole = false; };
  const Shot shots[] = {
      {"welcome", [](Scene& s) { return std::make_unique<WelcomeView>(s.flow); }},
      {"permission", [](Scene& s) { return std::make_unique<FDAView>(s.flow); }},
      {"input", [](Scene& s) { return std::make_unique<SystemDataInputView>(s.flow); }},
      {"input-consent", [](Scene& s) { return inputWithBackEnd(s.flow); }},
      {"preview-sheet", [](Scene& s) {
         auto view = inputWithBackEnd(s.flow);
         view->showPreview();
         return view;
       }},
      {"scan-failed", [](Scene& s) {
         s.flow.setScanError(QStringLiteral("스캔에 실패했습니다: du: 권한이 없습니다"));
         return std::make_unique<SystemDataInputView>(s.flow);
       }},
      {"scanning", [](Scene& s) {
         auto view = std::make_unique<ScanProgressView>(s.flow);
         view->showProgress(ScanProgress{
             1, "규칙 경로 측정 중 (37/90)",
             "Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw.very.long.name", 0.41});
         return view;
       }},
      {"scanning-waiting", [](Scene& s) { return std::make_unique<ScanProgressView>(s.flow); }},
      {"report", [&](Scene& s) { return report(s.flow); }},
      {"report-whole", [&](Scene& s) { return report(s.flow); }, true},
      {"report-no-figure", [](Scene& s) {
         s.flow.applyDebugReportFixture();
         s.flow.setSystemDataGB(std::nullopt);
         return std::make_unique<ReportView>(s.flow);
       }},
      {"save-error", [&](Scene& s) {
         // Saving into a Desktop that is a plain file fails.
         vorlan::test::writeFile(s.home / "Desktop", "not a folder");
         auto view = report(s.flow);
         view->save();
         return view;
       }},
      // The install sheets over the window, and the update strip over a screen. The flows of
      // these pictures run from a disk image that is not there, so the move is offered.
      {"move-sheet", [](Scene& s) { return std::make_unique<ContentView>(s.flow); }},
      {"move-sheet-moving", [&](Scene& s) {
         return afterSheetOpens(std::make_unique<ContentView>(s.flow), [](ContentView* w) { w->moveSheet()->setMoving(true); });
       }},
      {"move-sheet-error", [&](Scene& s) {
         return afterSheetOpens(std::make_unique<ContentView>(s.flow), [](ContentView* w) {
           w->moveSheet()->move();
           app::test::waitUntil([w] { return !w->moveSheet()->error().isEmpty(); });
         });
       }},
      {"trash-sheet", [&](Scene& s) { return trashOffer(s.flow); }},
      {"trash-sheet-error", [&](Scene& s) {
         return afterSheetOpens(trashOffer(s.flow), [](ContentView* w) {
           w->trashSheet()->trash();
           app::test::waitUntil([w] { return !w->trashSheet()->error().isEmpty(); });
         });
       }},
      {"update-banner", [](Scene& s) {
         // The window's column as ContentView lays it out, with the strip that a found update
         // brings (this picture's flow reaches no network).
         s.flow.applyDebugReportFixture();
         auto column = std::make_unique<QWidget>();
         auto* layout = new QVBoxLayout(column.get());
         layout->setContentsMargins(0, 0, 0, 0);
         layout->setSpacing(0);
         layout->addWidget(new UpdateBanner(UpdateInfo{"1.4.0", "https://example.test/v1.4.0"}, [] {}));
         layout->addWidget(new ReportView(s.flow), 1);
         return column;
       }},
      // The cleanup screen in its states.
      {"cleanup-plan", [](Scene& s) { return cleanupScreen(s, 200); }},
      {"cleanup-explain-offer", [](Scene& s) { return cleanupScreen(s, 200, true); }},
      {"cleanup-deleting", [](Scene& s) {
         // Another run holds the store, so the deletion waits where the picture can see it.
         auto view = cleanupScreen(s, 200);
         s.busy = std::make_unique<app::test::HeldStoreLock>(s.home);
         view->findChild<QPushButton*>("deleteButton")->click();
         return view;
       }},
      {"cleanup-skipped", [](Scene& s) {
         auto view = cleanupScreen(s, 200);
         s.flow.cleanup().setSkippedInUse({"Library/Application Support/com.example.music", "Library/Caches/com.example.browser"});
         return view;
       }},
      {"cleanup-quarantine", [](Scene& s) {
         fillQuarantine(s.home, s.flow.quarantineStore(), 1'787'000'000);
         return cleanupScreen(s, 12);
       }},
      {"explain-request-sheet", [](Scene& s) {
         auto view = cleanupScreen(s, 200, true);
         view->findChild<QPushButton*>("previewRequest")->click();
         return view;
       }},
  };

  int failures = 0, written = 0;
  for (auto appearance : {theme::Appearance::light, theme::Appearance::dark}) {
    theme::setAppearance(appearance);
    const QString tone = appearance == theme::Appearance::dark ? "dark" : "light";
    for (const Shot& shot : shots) {
      for (QSize size : shot.whole ? std::vector{QSize(800, 2400)} : std::vector{QSize(800, 600), QSize(560, 440)}) {
        vorlan::test::TempDir home;  // each picture on a home of its own
        AppFlow flow(app::test::screenEnvironment(home.path()));
        Scene scene{flow, home.path(), size, nullptr};
        std::unique_ptr<QWidget> view = shot.make(scene);
        if (!view->isVisible()) app::test::showAt(*view, size);  // the cleanup screen shows itself
        QApplication::processEvents();
        const QString file = folder + "/" + shot.name + "-" + tone +
                             (shot.whole ? QString() : QStringLiteral("-%1x%2").arg(size.width()).arg(size.height())) + ".png";
        if (picture(*view).save(file)) {
          ++written;
        } else {
          err << "could not write " << file << "\n";
          ++failures;
        }
        scene.busy.reset();
        app::test::waitUntil([&] { return !flow.cleanup().isExecuting(); });
      }
    }
  }
  err << written << " screenshots in " << folder << "\n";
  return failures == 0 ? 0 : 1;
}

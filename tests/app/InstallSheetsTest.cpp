#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QLabel>
#include <QPushButton>

#include <functional>

#include "app/FlowTestSupport.hpp"
#include "app/ScreenTestSupport.hpp"
#include "screens/ContentView.hpp"
#include "screens/MoveToApplicationsView.hpp"
#include "screens/TrashDMGView.hpp"
#include "screens/UpdateBanner.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

namespace fs = std::filesystem;
using test::waitUntil;

void settle() {
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  QCoreApplication::processEvents();
}

QPushButton* button(QWidget* in, const QString& text) {
  for (auto* b : in->findChildren<QPushButton*>())
    if (b->text() == text || b->accessibleName() == text) return b;
  return nullptr;
}

bool showsText(QWidget* in, const QString& text) {
  for (auto* l : in->findChildren<QLabel*>())
    if (l->isVisibleTo(in) && l->text() == text) return true;
  return false;
}

// The process's trash lives in a temporary folder for the test's length: Qt finds it through
// XDG_DATA_HOME (or HOME), never the real one.
class TemporaryTrash {
 public:
  TemporaryTrash() : oldHome_(qgetenv("HOME")), oldData_(qgetenv("XDG_DATA_HOME")) {
    fs::create_directories(dir_ / "share");
    qputenv("HOME", QByteArray::fromStdString(dir_.path().string()));
    qputenv("XDG_DATA_HOME", QByteArray::fromStdString((dir_ / "share").string()));
  }
  ~TemporaryTrash() {
    qputenv("HOME", oldHome_);
    if (oldData_.isNull()) qunsetenv("XDG_DATA_HOME"); else qputenv("XDG_DATA_HOME", oldData_);
  }
  fs::path files() const { return dir_ / "share/Trash/files"; }

 private:
  vorlan::test::TempDir dir_;
  QByteArray oldHome_, oldData_;
};

// A flow started from Downloads/Vorlan.app in a temporary home, where no such bundle is: the
// move is offered at launch, and fails at its copy.
struct SheetWorld {
  vorlan::test::TempDir home;
  AppFlow flow{[this] {
    AppEnvironment env = test::screenEnvironment(home.path());
    env.installSeams = [bundle = home / "Downloads/Vorlan.app"](ToolRunning&) {
      return test::standInInstallSeams(bundle);
    };
    return env;
  }()};
  ContentView window{flow};
  SheetWorld() {
    window.show();
    settle();
  }
};

TEST(InstallSheets, EachSheetFollowsItsOfferOverEveryStepAndClosingWithdrawsIt) {
  struct Case {
    const char* name;
    std::function<void(SheetWorld&)> offer;
    std::function<QDialog*(const ContentView&)> sheet;
    const char* firstButton;
    std::function<bool(const AppFlow&)> offerStands;
    fs::path untouched;  // what closing leaves where it is, relative to the home
  };
  const Case cases[] = {
      {"move", [](SheetWorld&) {}, [](const ContentView& w) { return w.moveSheet(); },
       "이번엔 그냥 쓰기", [](const AppFlow& f) { return f.showMoveSheet(); }, ""},
      {"trash",
       [](SheetWorld& w) {
         vorlan::test::writeFile(w.home / "Downloads/Vorlan.dmg", "image");
         w.flow.setShowMoveSheet(false);
         w.flow.setDmgToTrash(TrashCandidate{QString::fromStdString((w.home / "Downloads/Vorlan.dmg").string())});
       },
       [](const ContentView& w) { return w.trashSheet(); }, "그대로 두기",
       [](const AppFlow& f) { return f.dmgToTrash().has_value(); }, "Downloads/Vorlan.dmg"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SheetWorld w;
    c.offer(w);
    settle();
    QDialog* sheet = c.sheet(w.window);
    ASSERT_TRUE(sheet);
    EXPECT_TRUE(sheet->isVisible());
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    EXPECT_EQ(sheet->width(), 440);
    for (auto step : {AppFlow::Step::systemDataInput, AppFlow::Step::report}) {
      w.flow.setStep(step);
      settle();
      EXPECT_EQ(c.sheet(w.window), sheet) << "the sheet went with the screen";
    }
    button(sheet, c.firstButton)->click();
    settle();
    EXPECT_FALSE(c.sheet(w.window));
    EXPECT_FALSE(c.offerStands(w.flow));
    if (!c.untouched.empty()) {
      EXPECT_TRUE(fs::exists(w.home.path() / c.untouched));
    }
  }
}

TEST(InstallSheets, TheMoveCannotBePressedTwiceAndAFailureLeavesItsWordsAndTheButtonBack) {
  SheetWorld w;
  MoveToApplicationsView* sheet = w.window.moveSheet();
  ASSERT_TRUE(sheet);
  EXPECT_TRUE(showsText(sheet,
                        "지금은 다운로드 폴더에서 실행 중입니다. 응용 프로그램 폴더에 있어야 다음 "
                        "업데이트가 같은 자리에 들어가고 Launchpad에도 보입니다."));
  const QString failure = "옮기지 못했습니다: 파일이 없습니다";
  QPushButton* move = button(sheet, "옮기고 다시 열기");
  ASSERT_TRUE(move);
  EXPECT_GE(move->width(), 140);
  for (int attempt = 0; attempt < 2; ++attempt) {
    SCOPED_TRACE(attempt);
    move->click();
    // Before the worker's answer can arrive: the button says what goes on and takes no press.
    EXPECT_FALSE(move->isEnabled());
    EXPECT_EQ(move->text(), "옮기는 중…");
    EXPECT_EQ(sheet->error(), attempt == 0 ? QString() : failure) << "the last failure stays while moving";
    ASSERT_TRUE(waitUntil([&] { return move->isEnabled(); }));
    EXPECT_EQ(move->text(), "옮기고 다시 열기");
    EXPECT_EQ(sheet->error(), failure);
    EXPECT_TRUE(showsText(sheet, failure));
    EXPECT_EQ(w.window.moveSheet(), sheet) << "the sheet stays for another try";
  }
}

TEST(InstallSheets, TrashNamesOnlyTheFileAndMovesItOrSaysWhyNot) {
  struct Case {
    bool fileThere;
    QString error;  // empty: the sheet closes
  };
  const Case cases[] = {{true, ""}, {false, "휴지통으로 옮기지 못했습니다: 파일이 없습니다"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.fileThere);
    TemporaryTrash trash;
    SheetWorld w;
    w.flow.setShowMoveSheet(false);
    const fs::path image = w.home / "Downloads/Vorlan 1.2.dmg";
    if (c.fileThere) vorlan::test::writeFile(image, "image");
    w.flow.setDmgToTrash(TrashCandidate{QString::fromStdString(image.string())});
    settle();
    TrashDMGView* sheet = w.window.trashSheet();
    ASSERT_TRUE(sheet);
    EXPECT_TRUE(showsText(sheet, "다운로드한 Vorlan 1.2.dmg는 이제 필요 없습니다. 휴지통으로 옮길까요?"));

    button(sheet, "휴지통으로")->click();
    if (c.error.isEmpty()) {
      ASSERT_TRUE(waitUntil([&] { return !w.window.trashSheet(); }));
      EXPECT_FALSE(fs::exists(image));
      EXPECT_TRUE(fs::exists(trash.files() / "Vorlan 1.2.dmg"));
      EXPECT_FALSE(w.flow.dmgToTrash());
    } else {
      ASSERT_TRUE(waitUntil([&] { return !sheet->error().isEmpty(); }));
      EXPECT_EQ(sheet->error(), c.error);
      EXPECT_TRUE(showsText(sheet, c.error));
      EXPECT_EQ(w.window.trashSheet(), sheet);
      EXPECT_TRUE(w.flow.dmgToTrash());
    }
  }
}

TEST(InstallSheets, ClosingTheBannerKeepsTheUpdateForTheRun) {
  vorlan::test::TempDir home;
  test::ScriptedHttp http;
  http.answer = HttpResponse{200, R"({"version":"99.0","url":"https://example.test/v99"})"};
  AppEnvironment env = test::screenEnvironment(home.path());
  env.environment = {{"VORLAN_UPDATE_ENDPOINT", "https://update.test"}};
  env.makeTransport = http.factory();
  AppFlow flow(std::move(env));
  ContentView window(flow);
  ASSERT_TRUE(waitUntil([&] { return window.findChild<UpdateBanner*>() != nullptr; }));
  auto* banner = window.findChild<UpdateBanner*>();
  EXPECT_TRUE(showsText(banner, "새 버전 99.0이 나왔습니다"));

  button(banner, "닫기")->click();
  settle();
  EXPECT_FALSE(window.findChild<UpdateBanner*>());
  EXPECT_TRUE(flow.updateDismissed());
  ASSERT_TRUE(flow.availableUpdate());
  EXPECT_EQ(flow.availableUpdate()->version, "99.0");
}

}  // namespace
}  // namespace vorlan::app

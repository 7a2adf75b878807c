#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QLabel>
#include <QPushButton>

#include <functional>

#include "app/FlowTestSupport.hpp"
#include "app/ScreenTestSupport.hpp"
#include "screens/ContentView.hpp"
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

QPushButton* button(QWidget* in, const QString& textOrName) {
  for (auto* b : in->findChildren<QPushButton*>())
    if (b->text() == textOrName || b->accessibleName() == textOrName) return b;
  return nullptr;
}

bool showsText(QWidget* in, const QString& text) {
  for (auto* l : in->findChildren<QLabel*>())
    if (l->isVisibleTo(in) && l->text() == text) return true;
  return false;
}

// A flow started from Downloads/Vorlan.app in a temporary home where no such bundle is: the
// move is offered at launch and fails at its copy. The window shows.
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
  // The offer of the image instead of the move's.
  void offerTrash(const fs::path& image) {
    flow.setShowMoveSheet(false);
    flow.setDmgToTrash(TrashCandidate{QString::fromStdString(image.string())});
    settle();
  }
};

TEST(InstallSheets, EachSheetFollowsItsOfferOverEveryStepAndClosingWithdrawsIt) {
  struct Case {
    bool trash;
    const char* firstButton;
  };
  for (const Case& c : {Case{false, "이번엔 그냥 쓰기"}, Case{true, "그대로 두기"}}) {
    SCOPED_TRACE(c.firstButton);
    SheetWorld w;
    const fs::path image = w.home / "Downloads/Vorlan.dmg";
    vorlan::test::writeFile(image, "image");
    if (c.trash) w.offerTrash(image);
    auto sheet = [&]() -> QDialog* {
      return c.trash ? static_cast<QDialog*>(w.window.trashSheet()) : w.window.moveSheet();
    };
    QDialog* shown = sheet();
    ASSERT_TRUE(shown);
    EXPECT_TRUE(shown->isVisible());
    EXPECT_EQ(shown->windowModality(), Qt::WindowModal);
    EXPECT_EQ(shown->width(), 440);
    for (auto step : {AppFlow::Step::systemDataInput, AppFlow::Step::report}) {
      w.flow.setStep(step);
      settle();
      EXPECT_EQ(sheet(), shown) << "the sheet went with the screen";
    }
    button(shown, c.firstButton)->click();
    settle();
    EXPECT_FALSE(sheet());
    EXPECT_FALSE(w.flow.showMoveSheet());
    EXPECT_FALSE(w.flow.dmgToTrash());
    EXPECT_TRUE(fs::exists(image)) << "closing touches nothing";
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
  for (const QString& errorWhileMoving : {QString(), failure}) {
    move->click();
    // Before the worker's answer can arrive: the button says what goes on and takes no press.
    EXPECT_FALSE(move->isEnabled());
    EXPECT_EQ(move->text(), "옮기는 중…");
    EXPECT_EQ(sheet->error(), errorWhileMoving) << "the last failure stays until the next";
    ASSERT_TRUE(waitUntil([&] { return move->isEnabled(); }));
    EXPECT_EQ(move->text(), "옮기고 다시 열기");
    EXPECT_TRUE(showsText(sheet, failure));
    EXPECT_EQ(w.window.moveSheet(), sheet) << "the sheet stays for another try";
  }
}

// The process's trash lies in a temporary folder for the test's length: Qt finds it through
// XDG_DATA_HOME and HOME, and the real one is never reached.
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

TEST(InstallSheets, TrashNamesOnlyTheFileAndMovesItOrSaysWhyNot) {
  for (bool fileThere : {true, false}) {
    SCOPED_TRACE(fileThere);
    TemporaryTrash trash;
    SheetWorld w;
    const fs::path image = w.home / "Downloads/Vorlan 1.2.dmg";
    if (fileThere) vorlan::test::writeFile(image, "image");
    w.offerTrash(image);
    TrashDMGView* sheet = w.window.trashSheet();
    ASSERT_TRUE(sheet);
    EXPECT_TRUE(showsText(sheet, "다운로드한 Vorlan 1.2.dmg는 이제 필요 없습니다. 휴지통으로 옮길까요?"));

    button(sheet, "휴지통으로")->click();
    ASSERT_TRUE(waitUntil([&] { return !w.window.trashSheet() || !sheet->error().isEmpty(); }));
    if (fileThere) {
      EXPECT_FALSE(w.window.trashSheet());
      EXPECT_FALSE(w.flow.dmgToTrash());
      EXPECT_FALSE(fs::exists(image));
      EXPECT_TRUE(fs::exists(trash.files() / "Vorlan 1.2.dmg"));
    } else {
      EXPECT_TRUE(showsText(sheet, "휴지통으로 옮기지 못했습니다: 파일이 없습니다"));
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

#include "app/AppTestSupport.hpp"
#include "flow/InstallMover.hpp"
#include "install/InstallLocation.hpp"
#include "screens/ContentView.hpp"
#include "screens/UpdateBanner.hpp"

namespace vorlan::app {
namespace {

namespace fs = std::filesystem;
using test::button;
using test::settle;
using test::showsText;
using test::waitUntil;
using vorlan::test::TempDir;

// The mover's seams, each of which says in `log` what it was asked to do.
struct MoverWorld {
  TempDir dir;
  vorlan::test::ScriptedToolRunner runner;
  std::vector<std::string> log;
  InstallSeams seams;

  MoverWorld() : seams(test::standInInstallSeams(dir / "Volumes/Vorlan/Vorlan.app")) {
    vorlan::test::writeFile(seams.bundlePath / "Contents/MacOS/Vorlan", "binary");
    seams.ownExecutable = "/proc/self/exe";
    seams.runner = [this]() -> ToolRunning& { return runner; };
    seams.runsExecutable = [](pid_t, const fs::path&) { return true; };
    seams.terminate = [this](pid_t pid) { log.push_back("terminate " + std::to_string(pid)); };
    seams.forceTerminate = [this](pid_t pid) { log.push_back("kill " + std::to_string(pid)); };
    seams.sleep = [this](std::chrono::milliseconds ms) { log.push_back("sleep " + std::to_string(ms.count())); };
    seams.trash = [this](const fs::path& p) {
      log.push_back("trash");
      fs::remove_all(p);
    };
    seams.eject = [this](const std::string& m) { log.push_back("eject " + m); };
  }
  fs::path home() const { return dir / "home"; }
};

TEST(InstallMover, MoveCopiesWritesTheMarkerAndReportsOpenFailures) {
  struct Case { int openStatus; std::string expectedError; /* empty: success */ };
  const Case cases[] = {
      {0, ""},
      {1, "옮겼지만 다시 열지 못했습니다 — 응용 프로그램 폴더에서 직접 열어주세요. (open exit 1)"},
  };
  for (const Case& c : cases) {
    MoverWorld w;
    const auto dest = w.home() / "Applications/Vorlan.app";
    const std::string mount = (w.dir / "Volumes/Vorlan").string();
    vorlan::test::writeFile(dest / "old", "old");
    w.runner.script({"hdiutil", "info", "-plist"},
                    "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>images</key><array><dict>"
                    "<key>image-path</key><string>/d/Vorlan.dmg</string><key>system-entities</key><array>"
                    "<dict><key>mount-point</key><string>" + mount + "</string></dict></array></dict></array></dict></plist>");
    w.runner.script({"open", "-n", dest.string()}, "", c.openStatus);
    std::string error;
    try {
      InstallMover::moveAndRelaunch(w.home(), w.seams);
    } catch (const InstallMoverFailure& failure) {
      error = failure.what();
    }
    EXPECT_EQ(error, c.expectedError);
    EXPECT_EQ(vorlan::test::readFile(dest / "Contents/MacOS/Vorlan"), "binary") << "the copy stands";
    EXPECT_FALSE(fs::exists(dest / "old")) << "the old copy went to the trash";
    EXPECT_EQ(InstallCleanup::consume(w.home()), (InstallCleanup{mount, "/d/Vorlan.dmg", ::getpid()}));
  }
}

TEST(InstallMover, FinishWaitsOnlyForThisProgramAndOffersAnImageThatStillExists) {
  struct Case { bool sameProgram, imageExists; std::vector<std::string> expectedLog; };
  const Case cases[] = {
      {true, true, {"sleep 2000", "kill 4242", "eject /Volumes/Vorlan"}},
      // A recycled process id that runs another program is never touched.
      {false, true, {"eject /Volumes/Vorlan"}},
      {true, false, {"sleep 2000", "kill 4242", "eject /Volumes/Vorlan"}},
  };
  for (const Case& c : cases) {
    MoverWorld w;
    const auto image = w.dir / "Downloads/Vorlan.dmg";
    if (c.imageExists) vorlan::test::writeFile(image, "dmg");
    w.seams.runsExecutable = [&](pid_t, const fs::path&) { return c.sameProgram; };
    w.seams.isRunning = [](pid_t) { return true; };
    InstallCleanup{"/Volumes/Vorlan", image.string(), 4242}.save(w.home());
    const auto offered = InstallMover::finishAfterMove(w.home(), w.seams);
    EXPECT_EQ(offered, c.imageExists ? std::optional(image.string()) : std::nullopt);
    EXPECT_EQ(w.log, c.expectedLog);
  }
}

TEST(InstallMover, OriginDescription) {
  const std::pair<const char*, const char*> cases[] = {
      {"/Volumes/Vorlan/Vorlan.app", "디스크 이미지 안"},
      {"/Users/kim/Downloads/Vorlan.app", "다운로드 폴더"},
      {"/Users/kim/DownloadsX/Vorlan.app", "응용 프로그램 폴더 밖"},
      {"/private/var/folders/x/AppTranslocation/1/d/Vorlan.app", "임시 위치"},
  };
  for (const auto& [path, text] : cases)
    EXPECT_EQ(InstallMover::originDescription(path, "/Users/kim"), QString::fromUtf8(text)) << path;
}

// A flow started from Downloads/Vorlan.app in a temporary home where no such bundle is: the
// move is offered at launch and fails at its copy. The window shows.
struct SheetWorld {
  TempDir home;
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
  const std::pair<bool, const char*> cases[] = {{false, "이번엔 그냥 쓰기"}, {true, "그대로 두기"}};
  for (const auto& [trash, firstButton] : cases) {
    SCOPED_TRACE(firstButton);
    SheetWorld w;
    const fs::path image = w.home / "Downloads/Vorlan.dmg";
    vorlan::test::writeFile(image, "image");
    if (trash) w.offerTrash(image);
    auto sheet = [&, trash = trash]() -> QDialog* {
      return trash ? static_cast<QDialog*>(w.window.trashSheet()) : w.window.moveSheet();
    };
    QDialog* shown = sheet();
    ASSERT_TRUE(shown);
    EXPECT_TRUE(shown->isVisible());
    for (auto step : {AppFlow::Step::systemDataInput, AppFlow::Step::report}) {
      w.flow.setStep(step);
      settle();
      EXPECT_EQ(sheet(), shown) << "the sheet went with the screen";
    }
    button(shown, firstButton)->click();
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

TEST(InstallSheets, TrashNamesOnlyTheFileAndMovesItOrSaysWhyNot) {
  for (bool fileThere : {true, false}) {
    SCOPED_TRACE(fileThere);
    // Qt finds the trash through HOME and XDG_DATA_HOME: a temporary one, never the real one.
    TempDir trashHome;
    const test::ScopedEnv env({{"HOME", QByteArray::fromStdString(trashHome.path().string())},
                               {"XDG_DATA_HOME", QByteArray::fromStdString((trashHome / "share").string())}});
    fs::create_directories(trashHome / "share");
    SheetWorld w;
    const fs::path image = w.home / "Downloads/Vorlan 1.2.dmg";
    if (fileThere) vorlan::test::writeFile(image, "image");
    w.offerTrash(image);
    TrashDMGView* sheet = w.window.trashSheet();
    ASSERT_TRUE(sheet);
    EXPECT_TRUE(showsText(sheet, "다운로드한 Vorlan 1.2.dmg는 이제 필요 없습니다. 휴지통으로 옮길까요?"));

    button(sheet, "휴지통으로")->click();
    ASSERT_TRUE(waitUntil([&] { return !w.window.trashSheet() || !sheet->error().isEmpty(); }));
    EXPECT_EQ(w.flow.dmgToTrash().has_value(), !fileThere);
    EXPECT_FALSE(fs::exists(image));
    EXPECT_EQ(fs::exists(trashHome / "share/Trash/files/Vorlan 1.2.dmg"), fileThere);
    if (fileThere) {
      EXPECT_FALSE(w.window.trashSheet());
    } else {  // the sheet stays, saying why
      EXPECT_EQ(w.window.trashSheet(), sheet);
      EXPECT_TRUE(showsText(sheet, "휴지통으로 옮기지 못했습니다: 파일이 없습니다"));
    }
  }
}

// The update check runs at launch; closing its banner keeps what it found for the run.
TEST(InstallSheets, ClosingTheBannerKeepsTheUpdateForTheRun) {
  TempDir home;
  AppFlow flow(test::screenEnvironment(home.path(), HttpResponse{200, R"({"version":"99.0","url":"https://example.test/v99"})"},
                                       {{"VORLAN_UPDATE_ENDPOINT", "https://update.test"}}));
  ContentView window(flow);
  ASSERT_TRUE(waitUntil([&] { return window.findChild<UpdateBanner*>() != nullptr; }));
  auto* banner = window.findChild<UpdateBanner*>();
  EXPECT_TRUE(showsText(banner, "새 버전 99.0이 나왔습니다"));

  button(banner, "닫기")->click();
  settle();
  EXPECT_FALSE(window.findChild<UpdateBanner*>());
  EXPECT_TRUE(flow.updateDismissed());
  EXPECT_EQ(flow.availableUpdate(), (UpdateInfo{"99.0", "https://example.test/v99"}));
}

}  // namespace
}  // namespace vorlan::app

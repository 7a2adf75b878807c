#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "flow/InstallMover.hpp"
#include "install/InstallLocation.hpp"
#include "platform/ProcessIdentity.hpp"
#include "support/ScriptedToolRunner.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

using test::ScriptedToolRunner;
using test::TempDir;

struct MoverWorld {
  TempDir dir;
  ScriptedToolRunner runner;
  std::vector<std::string> log;
  InstallSeams seams;

  MoverWorld() {
    test::writeFile(dir / "Volumes/Vorlan/Vorlan.app/Contents/MacOS/Vorlan", "binary");
    seams.bundlePath = dir / "Volumes/Vorlan/Vorlan.app";
    seams.ownExecutable = "/proc/self/exe";
    seams.runner = [this]() -> ToolRunning& { return runner; };
    seams.otherInstances = [](const std::string&) { return std::vector<pid_t>{}; };
    seams.runsExecutable = [](pid_t, const std::filesystem::path&) { return true; };
    seams.isRunning = [](pid_t) { return false; };
    seams.terminate = [this](pid_t pid) { log.push_back("terminate " + std::to_string(pid)); };
    seams.forceTerminate = [this](pid_t pid) { log.push_back("kill " + std::to_string(pid)); };
    seams.sleep = [this](std::chrono::milliseconds ms) { log.push_back("sleep " + std::to_string(ms.count())); };
    seams.trash = [this](const std::filesystem::path& p) {
      log.push_back("trash");
      std::filesystem::remove_all(p);
    };
    seams.eject = [this](const std::string& m) { log.push_back("eject " + m); };
  }
  std::filesystem::path home() const { return dir / "home"; }
};

std::string hdiutilFor(const std::string& image, const std::string& mount) {
  return "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>images</key><array><dict>"
         "<key>image-path</key><string>" + image + "</string><key>system-entities</key><array>"
         "<dict><key>mount-point</key><string>" + mount + "</string></dict></array></dict></array></dict></plist>";
}

TEST(InstallMover, MoveCopiesWritesTheMarkerAndReportsOpenFailures) {
  struct Case {
    int openStatus;
    bool oldCopy;
    std::string expectedError;  // empty: success
  };
  const Case cases[] = {
      {0, false, ""},
      {0, true, ""},
      {1, false, "옮겼지만 다시 열지 못했습니다 — 응용 프로그램 폴더에서 직접 열어주세요. (open exit 1)"},
  };
  for (const Case& c : cases) {
    MoverWorld w;
    const auto dest = w.home() / "Applications/Vorlan.app";
    if (c.oldCopy) test::writeFile(dest / "old", "old");
    w.runner.script({"hdiutil", "info", "-plist"},
                    hdiutilFor("/d/Vorlan.dmg", (w.dir / "Volumes/Vorlan").string()));
    w.runner.script({"open", "-n", dest.string()}, "", c.openStatus);
    std::string error;
    try {
      InstallMover::moveAndRelaunch(w.home(), w.seams);
    } catch (const InstallMoverFailure& failure) {
      error = failure.what();
    }
    EXPECT_EQ(error, c.expectedError);
    EXPECT_EQ(test::readFile(dest / "Contents/MacOS/Vorlan"), "binary") << "the copy stands";
    EXPECT_FALSE(std::filesystem::exists(dest / "old")) << "the old copy went to the trash";
    EXPECT_EQ(InstallCleanup::consume(w.home()),
              (InstallCleanup{(w.dir / "Volumes/Vorlan").string(), "/d/Vorlan.dmg", ::getpid()}));
  }
}

TEST(InstallMover, FinishWaitsOnlyForThisProgramAndOffersAnImageThatStillExists) {
  struct Case {
    bool sameProgram;
    bool imageExists;
    std::vector<std::string> expectedLog;
  };
  const Case cases[] = {
      {true, true, {"sleep 2000", "kill 4242", "eject /Volumes/Vorlan"}},
      // A recycled process id that runs another program is never touched.
      {false, true, {"eject /Volumes/Vorlan"}},
      {true, false, {"sleep 2000", "kill 4242", "eject /Volumes/Vorlan"}},
  };
  for (const Case& c : cases) {
    MoverWorld w;
    const auto image = w.dir / "Downloads/Vorlan.dmg";
    if (c.imageExists) test::writeFile(image, "dmg");
    w.seams.runsExecutable = [&](pid_t, const std::filesystem::path&) { return c.sameProgram; };
    w.seams.isRunning = [](pid_t) { return true; };
    InstallCleanup{"/Volumes/Vorlan", image.string(), 4242}.save(w.home());
    const auto offered = InstallMover::finishAfterMove(w.home(), w.seams);
    EXPECT_EQ(offered, c.imageExists ? std::optional(image.string()) : std::nullopt);
    EXPECT_EQ(w.log, c.expectedLog);
    EXPECT_EQ(InstallMover::finishAfterMove(w.home(), w.seams), std::nullopt) << "marker used once";
  }
}

TEST(InstallMover, AStaleProcessIdOfAnotherProgramIsLeftRunning) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::execl("/bin/sleep", "sleep", "30", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ASSERT_GT(child, 0);
  MoverWorld w;
  w.seams.runsExecutable = [](pid_t pid, const std::filesystem::path& exe) {
    return processRunsExecutable(pid, exe);
  };
  w.seams.ownExecutable = *executableOfProcess(::getpid());
  w.seams.isRunning = [](pid_t pid) { return ::kill(pid, 0) == 0; };
  w.seams.forceTerminate = [](pid_t pid) { ::kill(pid, SIGKILL); };
  InstallCleanup{std::nullopt, std::nullopt, child}.save(w.home());
  EXPECT_EQ(InstallMover::finishAfterMove(w.home(), w.seams), std::nullopt);
  EXPECT_EQ(::kill(child, 0), 0) << "the unrelated process still runs";
  EXPECT_TRUE(w.log.empty());
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

TEST(InstallMover, OriginDescription) {
  const std::pair<const char*, const char*> cases[] = {
      {"/Volumes/Vorlan/Vorlan.app", "디스크 이미지 안"},
      {"/Users/kim/Downloads/Vorlan.app", "다운로드 폴더"},
      {"/Users/kim/DownloadsX/Vorlan.app", "응용 프로그램 폴더 밖"},
      {"/private/var/folders/x/AppTranslocation/1/d/Vorlan.app", "임시 위치"},
      {"/Users/kim/Desktop/Vorlan.app", "응용 프로그램 폴더 밖"},
  };
  for (const auto& [path, text] : cases)
    EXPECT_EQ(InstallMover::originDescription(path, "/Users/kim"), QString::fromUtf8(text)) << path;
}

}  // namespace
}  // namespace vorlan::app

// What the screen tests and the screenshots share: an AppFlow world on a temporary home that
// runs no tool and reaches no network, and a widget shown offscreen at a given size.
#pragma once
#include <QApplication>
#include <QWidget>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "flow/AppFlow.hpp"
#include "support/ScriptedToolRunner.hpp"
#include "theme/Theme.hpp"

namespace vorlan::app::test {

// Every request fails as if there were no network.
class OfflineTransport : public HttpTransport {
 public:
  std::optional<HttpResponse> perform(const HttpRequest&) override { return std::nullopt; }
};

// The move into the applications folder on stand-ins: the app runs from `bundle`, no other
// copy runs, the trash removes, and every tool (hdiutil, open) exits with 1. A bundle that is
// not there makes the move fail at its copy; nothing outside the temporary home is touched.
inline InstallSeams standInInstallSeams(std::filesystem::path bundle) {
  auto runner = std::make_shared<vorlan::test::ScriptedToolRunner>();
  runner->scriptFallback([](const auto&) { return ToolResult{1, {}, {}}; });
  InstallSeams seams;
  seams.bundlePath = std::move(bundle);
  seams.ownExecutable = "/nonexistent";
  seams.runner = [runner]() -> ToolRunning& { return *runner; };
  seams.otherInstances = [](const std::string&) { return std::vector<pid_t>{}; };
  seams.runsExecutable = [](pid_t, const std::filesystem::path&) { return false; };
  seams.isRunning = [](pid_t) { return false; };
  seams.terminate = seams.forceTerminate = [](pid_t) {};
  seams.sleep = [](std::chrono::milliseconds) {};
  seams.trash = [](const std::filesystem::path& path) { std::filesystem::remove_all(path); };
  seams.eject = [](const std::string&) {};
  return seams;
}

inline AppEnvironment screenEnvironment(const std::filesystem::path& home) {
  AppEnvironment env;
  env.home = home;
  env.makeToolRunner = [] { return std::make_unique<vorlan::test::ScriptedToolRunner>(); };
  env.hasBinary = [](const std::string&) { return false; };
  env.makeTransport = [] { return std::make_unique<OfflineTransport>(); };
  env.now = [] { return int64_t{1'787'000'000}; };  // one fixed day
  // Started from a disk image that is not there: the move is offered, and fails at its copy.
  env.installSeams = [](ToolRunning&) { return standInInstallSeams("/Volumes/Vorlan/Vorlan.app"); };
  return env;
}

// Lays `widget` out at `size` as a window of its own, painted as a person would see it.
inline void showAt(QWidget& widget, QSize size) {
  theme::install(*qApp);
  widget.resize(size);
  widget.show();
  QApplication::processEvents();
}

// Holds the quarantine's lock as another run of the program would: every store operation
// waits for it, and gives up after three seconds. Released when the value goes.
class HeldStoreLock {
 public:
  explicit HeldStoreLock(const std::filesystem::path& home) {
    std::filesystem::create_directories(home / ".vorlan");
    fd_ = ::open((home / ".vorlan/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ >= 0) ::flock(fd_, LOCK_EX);
  }
  ~HeldStoreLock() {
    if (fd_ >= 0) ::close(fd_);
  }
  HeldStoreLock(const HeldStoreLock&) = delete;
  HeldStoreLock& operator=(const HeldStoreLock&) = delete;

 private:
  int fd_ = -1;
};

}  // namespace vorlan::app::test

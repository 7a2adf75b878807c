// What the app's tests and the screenshots share: an app environment on a temporary home that
// runs no tool and reaches no network unless a test scripts it, waits that let queued hops from
// worker threads arrive, widgets shown offscreen, and small finders over widgets.
#pragma once
#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QPushButton>
#include <QThread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>

#include "flow/AppFlow.hpp"
#include "support/ScriptedToolRunner.hpp"
#include "support/TestSupport.hpp"
#include "theme/Theme.hpp"

namespace vorlan::app::test {

// Runs the event loop until `done` holds; false after `seconds` (a hang, not a timing check).
inline bool waitUntil(const std::function<bool()>& done, double seconds = 30) {
  QElapsedTimer timer;
  timer.start();
  while (!done()) {
    if (timer.elapsed() > seconds * 1000) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    QThread::msleep(1);
  }
  return true;
}

// Runs what was put off, such as the deletion of the screen before, as the event loop would.
inline void settle() {
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  QCoreApplication::processEvents();
}

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

// A fixed day, tools that are all missing, and `answer` to every request (none: as without a
// network). Started from a disk image that is not there: the move is offered, and fails at its copy.
inline AppEnvironment screenEnvironment(const std::filesystem::path& home, std::optional<HttpResponse> answer = {},
                                        Environment environment = {}, int64_t now = 1'787'000'000) {
  struct Answering : HttpTransport {
    std::optional<HttpResponse> answer;
    explicit Answering(std::optional<HttpResponse> a) : answer(std::move(a)) {}
    std::optional<HttpResponse> perform(const HttpRequest&) override { return answer; }
  };
  AppEnvironment env;
  env.home = home;
  env.environment = std::move(environment);
  env.makeToolRunner = [] { return std::make_unique<vorlan::test::ScriptedToolRunner>(); };
  env.hasBinary = [](const std::string&) { return false; };
  env.makeTransport = [answer] { return std::make_unique<Answering>(answer); };
  env.now = [now] { return now; };
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

// The push button that says `text` (or is named so for assistive tools) inside `in`.
inline QPushButton* button(QWidget* in, const QString& text) {
  for (auto* b : in->findChildren<QPushButton*>())
    if (b->text() == text || b->accessibleName() == text) return b;
  ADD_FAILURE() << "no button " << text.toStdString();
  return nullptr;
}

inline bool showsText(QWidget* in, const QString& text) {
  for (auto* l : in->findChildren<QLabel*>())
    if (l->isVisibleTo(in) && l->text() == text) return true;
  return false;
}

// Sets (or, for no value, removes) environment variables while it lives, then puts them back.
class ScopedEnv {
 public:
  explicit ScopedEnv(const std::map<const char*, std::optional<QByteArray>>& values) {
    for (const auto& [name, value] : values) {
      saved_[name] = qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt;
      value ? qputenv(name, *value) : qunsetenv(name);
    }
  }
  ~ScopedEnv() {
    for (const auto& [name, value] : saved_) value ? qputenv(name, *value) : qunsetenv(name);
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::map<const char*, std::optional<QByteArray>> saved_;
};

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

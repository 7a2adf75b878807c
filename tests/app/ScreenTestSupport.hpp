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

inline AppEnvironment screenEnvironment(const std::filesystem::path& home) {
  AppEnvironment env;
  env.home = home;
  env.makeToolRunner = [] { return std::make_unique<vorlan::test::ScriptedToolRunner>(); };
  env.hasBinary = [](const std::string&) { return false; };
  env.makeTransport = [] { return std::make_unique<OfflineTransport>(); };
  env.now = [] { return int64_t{1'787'000'000}; };  // one fixed day
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

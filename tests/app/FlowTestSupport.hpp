// What the flow tests share: an app environment on a temporary home with a fixed clock and a
// scripted network, and a wait that lets queued hops from worker threads arrive.
#pragma once
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <functional>
#include <mutex>

#include "flow/AppEnvironment.hpp"
#include "network/HttpTransport.hpp"

namespace vorlan::app::test {

// Runs the event loop until `done` holds; false after `seconds` (a hang, not a timing check).
inline bool waitUntil(const std::function<bool()>& done, double seconds = 20) {
  QElapsedTimer timer;
  timer.start();
  while (!done()) {
    if (timer.elapsed() > seconds * 1000) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    QThread::msleep(1);
  }
  return true;
}

// Answers every request with one scripted response and records what was asked.
struct ScriptedHttp {
  std::mutex lock;
  std::optional<HttpResponse> answer;
  std::vector<HttpRequest> requests;

  std::function<std::unique_ptr<HttpTransport>()> factory() {
    struct Transport : HttpTransport {
      ScriptedHttp* owner;
      explicit Transport(ScriptedHttp* o) : owner(o) {}
      std::optional<HttpResponse> perform(const HttpRequest& request) override {
        std::lock_guard guard(owner->lock);
        owner->requests.push_back(request);
        return owner->answer;
      }
    };
    return [this] { return std::make_unique<Transport>(this); };
  }
};

inline AppEnvironment testEnvironment(const std::filesystem::path& home, ScriptedHttp& http,
                                      int64_t now, Environment environment = {}) {
  AppEnvironment env;
  env.home = home;
  env.environment = std::move(environment);
  env.makeTransport = http.factory();
  env.now = [now] { return now; };
  env.hasBinary = [](const std::string&) { return false; };
  return env;
}

}  // namespace vorlan::app::test

// The world as the app sees it: the real one from main(), a scripted one in tests. Every flow
// object takes its home folder, clock, tools and network from here. Function members left
// empty are the real ones (see completed); the home folder is never guessed.
#pragma once
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

#include "flow/InstallMover.hpp"
#include "network/Environment.hpp"
#include "network/HttpTransport.hpp"
#include "network/Telemetry.hpp"
#include "scan/ToolRunning.hpp"

namespace vorlan::app {

struct AppEnvironment {
  std::filesystem::path home;
  Environment environment;  // captured once at start
  std::function<std::unique_ptr<ToolRunning>()> makeToolRunner;  // one per scan
  HasBinary hasBinary;
  std::function<std::unique_ptr<HttpTransport>()> makeTransport;  // one per request
  std::function<int64_t()> now;                                   // seconds since 1970
  // What the move into the applications folder touches: the running bundle, the trash,
  // other processes. Tests give stand-ins, so that no test moves a real app.
  std::function<InstallSeams(ToolRunning&)> installSeams;
};

// HOME (links resolved, refused when unusable: then `home` is empty), the process
// environment, the real tool runner, libcurl and the system clock.
AppEnvironment realEnvironment();

// `env` with every empty function member replaced by the real one.
AppEnvironment completed(AppEnvironment env);

// The statistics back-end named by the environment captured at start (or the build's
// defaults); absent when none is configured.
std::optional<Telemetry::Config> telemetryConfig(const AppEnvironment& env);

}  // namespace vorlan::app

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <QTest>

#include <fmt/format.h>

#include "flow/AppFlow.hpp"
#include "flow/OpenSettings.hpp"
#include "network/CurlTransport.hpp"
#include "network/LocalHttpServer.hpp"
#include "quarantine/Quarantine.hpp"
#include "scan/ProcessToolRunner.hpp"
#include "support/ScriptedToolRunner.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

namespace fs = std::filesystem;
using Step = AppFlow::Step;
using test::ScriptedToolRunner;

constexpr int64_t testNow = 1'780'000'000;

// Queued hops land only while the event loop runs; this runs it until `condition` holds. The
// bound only turns a hang into a failure.
bool eventually(const std::function<bool()>& condition) { return QTest::qWaitFor(condition, 30'000); }

// No child of ours is left, running or unreaped.
bool noChildLeft() { return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

// The real process runner with `du` replaced by a script; every other tool is missing.
struct DuStandIn final : ToolRunning {
  std::string script;
  ProcessToolRunner real{std::chrono::milliseconds(500)};

  explicit DuStandIn(std::string s) : script(std::move(s)) {}
  std::vector<std::string> swap(std::vector<std::string> a) const {
    if (a.empty() || a[0] != "du") throw ToolError::notFound(a.empty() ? "" : a[0]);
    a[0] = script;
    return a;
  }
  ToolResult run(const std::vector<std::string>& a, std::optional<double> t, std::stop_token s) override {
    return real.run(swap(a), t, s);
  }
  ToolResult runStreaming(const std::vector<std::string>& a, const LineCallback& l, std::stop_token s) override {
    return real.runStreaming(swap(a), l, s);
  }
};

class AppFlowTest : public ::testing::Test {
 protected:
  AppFlowTest() { fs::create_directories(home); }

  // Nothing reaches the network unless a test names its local server. `du` is `duScript`
  // when one is given; every other tool is missing.
  AppEnvironment environment(Environment variables = {}, std::string duScript = "") {
    variables.try_emplace("VORLAN_UPDATE_ENDPOINT", "");
    variables.try_emplace("VORLAN_TELEMETRY_URL", "");
    variables.try_emplace("VORLAN_SCAN_ENGINE", "du");  // these scans run their stand-in du
    static const CurlOptions capped{.timeoutCap = std::chrono::seconds(5), .stop = {}};
    return AppEnvironment{home, std::move(variables),
                          [duScript] { return std::make_unique<DuStandIn>(duScript); },
                          [](const std::string&) { return false; },
                          [] { return std::make_unique<CurlTransport>(capped); },
                          [] { return testNow; },
                          {}};
  }

  // Writes the stand-in du.
  std::string du(const std::string& body) {
    test::writeScript(dir / "du", body);
    return (dir / "du").string();
  }

  test::TempDir dir;
  fs::path home = dir / "home";
};

// The flow starts with the fixture's result, so each case also shows what a scan leaves of
// an earlier one, and with an old error line, which a new scan clears at once. A cancel takes
// the failure's way without its error (CancelOrDestroyMidScanEndsTheRunningTool).
TEST_F(AppFlowTest, ScanEndsInReportOrBackAtInputKeepingTheEarlierResult) {
  struct Case { bool fails; Step step; std::optional<QString> error; };
  const Case cases[] = {
      {false, Step::report, std::nullopt},
      {true, Step::systemDataInput, QStringLiteral("스캔에 실패했습니다: 디스크를 읽지 못함")},
  };
  const std::vector<std::string> sweepOfHome = {"du", "-xk", "-d", "1", home.string()};
  for (const Case& c : cases) {
    AppEnvironment env = environment({{"VORLAN_DEBUG_REPORT", "1"}});
    env.makeToolRunner = [&] {
      auto runner = std::make_unique<ScriptedToolRunner>();
      runner->script(sweepOfHome, "2048\t" + home.string() + "/Documents\n4096\t" + home.string() + "\n");
      runner->onCall([&](const ScriptedToolRunner::Call& call) {
        if (c.fails && call.arguments == sweepOfHome) throw std::runtime_error("디스크를 읽지 못함");
      });
      return runner;
    };
    AppFlow flow(std::move(env));
    const auto earlier = flow.result();
    flow.setScanError(QStringLiteral("이전 오류"));
    flow.startScan();
    EXPECT_EQ(flow.step(), Step::scanning);
    EXPECT_FALSE(flow.scanError() || flow.progress());
    EXPECT_EQ(flow.result(), earlier);
    ASSERT_TRUE(eventually([&] { return !flow.isScanning(); }));
    EXPECT_EQ(flow.step(), c.step);
    EXPECT_EQ(flow.scanError(), c.error);
    if (c.fails) {
      EXPECT_EQ(flow.result(), earlier);
      EXPECT_EQ(flow.scanDuration(), 542.0);
    } else {
      EXPECT_NE(flow.result(), earlier) << "the new scan's result replaces the earlier one";
      EXPECT_GT(flow.scanDuration(), 0);
    }
  }
}

// Lines of a real child, read on the runner's own thread, reach the flow one by one in order.
TEST_F(AppFlowTest, ProgressFromTheReadingThreadArrivesInOrder) {
  AppFlow flow(environment({}, du("[ \"$3\" = 1 ] || exit 0\n"
                                   "i=0; while [ $i -lt 400 ]; do printf '4\\t%s/d%03d\\n' \"$4\" $i; i=$((i+1)); done\n")));
  std::vector<std::string> details;
  QObject::connect(&flow, &AppFlow::progressChanged, [&] {
    if (flow.progress() && flow.progress()->phase == 2 && flow.progress()->detail)
      details.push_back(*flow.progress()->detail);
  });
  flow.startScan();
  ASSERT_TRUE(eventually([&] { return !flow.isScanning(); }));
  ASSERT_EQ(flow.step(), Step::report);

  std::vector<std::string> expected;
  for (const std::string& folder : {home.string(), home.string() + "/Library"})
    for (int i = 0; i < 400; ++i) expected.push_back(fmt::format("{}/d{:03d}", folder, i));
  EXPECT_EQ(details, expected);
}

// VORLAN_SCAN_ENGINE=du runs the tool; anything else reads the tree, which the stand-in's
// one-kilobyte answer cannot be mistaken for.
TEST_F(AppFlowTest, TheScanEngineComesFromTheEnvironment) {
  test::allocateFile(home / "Documents/f", 2'000'000);
  const std::string script = du("printf '1\\t%s\\n' \"$4\"\n");  // Documents is a rule path: one du -d 0
  for (const char* engine : {"du", "walk", ""}) {
    AppFlow flow(environment({{"VORLAN_SCAN_ENGINE", engine}}, script));
    flow.startScan();
    ASSERT_TRUE(eventually([&] { return !flow.isScanning(); }));
    ASSERT_TRUE(flow.result()) << engine;
    ASSERT_EQ(flow.result()->findings.size(), 1u) << engine;
    const int64_t size = flow.result()->findings[0].sizeBytes.value_or(0);
    EXPECT_EQ(size == 1024, std::string(engine) == "du") << engine << " " << size;
  }
}

// A du that would run for half a minute ends at once, whether the user cancels or closes the
// window: nothing of it is left running, and the flow goes without a crash.
TEST_F(AppFlowTest, CancelOrDestroyMidScanEndsTheRunningTool) {
  const fs::path pidFile = dir / "du.pid";
  const std::string script = du("echo $$ > '" + pidFile.string() + "'\nprintf '4\\t%s/a\\n' \"$4\"\nexec sleep 30\n");
  for (const bool destroy : {false, true}) {
    fs::remove(pidFile);
    auto flow = std::make_unique<AppFlow>(environment({}, script));
    flow->startScan();
    // The first line came through the reading thread: the tool is running now.
    ASSERT_TRUE(eventually([&] { return flow->progress() && flow->progress()->detail; }));
    const pid_t pid = std::stoi(test::readFile(pidFile));
    if (destroy) {
      flow.reset();
      QCoreApplication::processEvents();  // what the scan still posted must go with the flow
    } else {
      flow->cancelScan();
      ASSERT_TRUE(eventually([&] { return !flow->isScanning(); }));
      EXPECT_EQ(flow->step(), Step::systemDataInput);
      EXPECT_FALSE(flow->scanError());
    }
    EXPECT_TRUE(noChildLeft()) << (destroy ? "destroyed" : "cancelled");
    EXPECT_TRUE(::kill(pid, 0) == -1 && errno == ESRCH) << "du stand-in still there";
  }
}

TEST_F(AppFlowTest, TelemetryOnlyWithBackendAndConsent) {
  struct Case { bool backend, consent, homeListable; int status; std::optional<bool> sent; };
  const Case cases[] = {
      {false, true, true, 201, std::nullopt},
      {true, false, true, 201, std::nullopt},
      {true, true, true, 201, true},
      {true, true, false, 201, true},   // no access to the home folder: said in the report
      {true, true, true, 500, false},
  };
  DeepScanResult result;
  result.diskTotalBytes = 500'000'000'000;
  result.findings = {Finding{"Library/Caches", 1'000'000'000, "cache", Grade::safe, "", ""}};
  for (const Case& c : cases) {
    test::LocalHttpServer server([&](const test::ReceivedRequest&) { return test::LocalHttpServer::response(c.status, ""); });
    std::vector<size_t> requestsAtPreview;
    {
      if (!c.homeListable) fs::remove_all(home);
      AppFlow flow(environment({{"VORLAN_TELEMETRY_URL", c.backend ? server.base() : ""},
                                {"VORLAN_TELEMETRY_ANON_KEY", "anon-key"}}));
      QObject::connect(&flow, &AppFlow::telemetryPreviewChanged,
                       [&] { requestsAtPreview.push_back(server.requests().size()); });
      flow.setTelemetryConsented(c.consent);
      flow.sendTelemetryIfConsented(result);
      if (c.sent) {
        ASSERT_TRUE(eventually([&] { return flow.telemetrySent().has_value(); }));
        EXPECT_TRUE(flow.telemetryPreview()->contains("\"app_kind\": \"gui\""));
      }
      EXPECT_EQ(flow.telemetrySent(), c.sent);
      EXPECT_EQ(flow.telemetryPreview().has_value(), c.sent.has_value());
    }  // the flow joins any send it started: nothing can come after this
    fs::create_directories(home);
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), c.sent ? 1u : 0u);
    if (!c.sent) continue;
    EXPECT_EQ(requestsAtPreview, std::vector<size_t>{1}) << "the preview came before the send ended";
    EXPECT_EQ(requests[0].body.find("fda_denied") != std::string::npos, !c.homeListable);
  }
}

TEST_F(AppFlowTest, DebugFixtureOnlyForExactlyOne) {
  const std::pair<std::optional<std::string>, bool> cases[] = {
      {std::nullopt, false}, {"1", true}, {"true", false}, {"", false}, {" 1", false}, {"0", false}};
  for (const auto& [value, applied] : cases) {
    Environment variables;
    if (value) variables.emplace("VORLAN_DEBUG_REPORT", *value);
    AppFlow flow(environment(variables));
    EXPECT_EQ(flow.step(), applied ? Step::report : Step::welcome) << value.value_or("(unset)");
    EXPECT_EQ(flow.result().has_value(), applied);
  }
}

// The update found at launch is checked through its banner (InstallSheets).
TEST_F(AppFlowTest, LaunchWorkExpiresOverdueBatches) {
  const Quarantine store(Quarantine::defaultRoot(home), home);
  for (const char* name : {"old/a.txt", "new/b.txt"}) test::writeFile(home / name, name);
  const auto overdue = store.move({"old"}, testNow - Quarantine::holdSeconds - 1);
  const auto fresh = store.move({"new"}, testNow - 60);
  AppFlow flow(environment());
  ASSERT_TRUE(eventually([&] { return !fs::exists(store.root / overdue.id); }));
  EXPECT_TRUE(fs::exists(store.root / fresh.id));
}

TEST(OpenSettings, WalksCandidatesUntilOneOpens) {
  const QString a = "x-apple.systempreferences:com.apple.settings.Storage?Storage";
  const QString b = "x-apple.systempreferences:com.apple.settings.Storage";
  const QString c = "x-apple.systempreferences:";
  struct Case { QStringList urls, refused, expectedTries; };
  for (const Case& tc : {Case{{}, {}, {}}, Case{{a, b, c}, {}, {a}}, Case{{a, b, c}, {a}, {a, b}},
                         Case{{a, b, c}, {a, b, c}, {a, b, c}}, Case{{"", "::not a url", b}, {}, {b}}}) {
    QStringList tried;
    openSettings(tc.urls, [&](const QUrl& url) {
      tried << url.toString();
      return !tc.refused.contains(url.toString());
    });
    EXPECT_EQ(tried, tc.expectedTries) << tc.urls.join(" | ").toStdString();
  }
}

}  // namespace
}  // namespace vorlan::app

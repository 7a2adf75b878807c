// The command line's network features end to end: the built `vorlan` against a local server,
// with a temporary home folder.
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <thread>
#include <nlohmann/json.hpp>

#include "Version.hpp"
#include "network/LocalHttpServer.hpp"
#include "network/Telemetry.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::test {
namespace {

namespace fs = std::filesystem;
const std::string kVersion(Telemetry::appVersion);

// No deployment value of the build and no proxy of the machine may leak into these runs.
ProcessOutcome vorlan(const TempDir& home, std::vector<std::string> args, std::map<std::string, std::string> env) {
  ProcessOptions options;
  options.env = std::move(env);
  options.env.insert({{"VORLAN_TELEMETRY_URL", ""}, {"VORLAN_TELEMETRY_ANON_KEY", "anon-key"}, {"VORLAN_UPDATE_ENDPOINT", ""},
                      {"VORLAN_EXPLAIN_ENDPOINT", ""}, {"no_proxy", "127.0.0.1"}, {"NO_PROXY", "127.0.0.1"}});
  return runCli(home.path(), std::move(args), options);
}

// The address of a server that is gone: nobody listens there.
std::string deadEndpoint() {
  return LocalHttpServer([](const ReceivedRequest&) { return std::string(); }).base();
}

TEST(NetworkCli, VersionIsTheLiteralAndTellsOfANewerPublishedOne) {
  const struct { const char* name; std::optional<std::string> answer; std::string extraLine; } cases[] = {
      {"newer", LocalHttpServer::response(200, R"({"version":"9.1.0","url":"https://vorlan.example/get"})"),
       "새 버전이 나왔습니다: 9.1.0 — https://vorlan.example/get\n"},
      {"same", LocalHttpServer::response(200, R"({"version":")" + kVersion + R"(","url":"https://v.example"})"), ""},
      {"plain http link", LocalHttpServer::response(200, R"({"version":"9.1.0","url":"http://v.example"})"), ""},
      {"nobody listening", std::nullopt, ""},  // no server at that address
  };
  for (const auto& c : cases) {
    std::optional<LocalHttpServer> server;
    if (c.answer) server.emplace([&](const ReceivedRequest&) { return *c.answer; });
    TempDir home;
    const auto r = vorlan(home, {"--version"}, {{"VORLAN_UPDATE_ENDPOINT", server ? server->base() : deadEndpoint()}});
    EXPECT_EQ(r.exitCode, 0) << c.name;
    EXPECT_EQ(r.out, "vorlan " + kVersion + "\n" + c.extraLine) << c.name;
    EXPECT_EQ(r.err, "") << c.name;
  }
}

TEST(NetworkCli, SharePreviewPrintsTheBodyAndSendsNothing) {
  LocalHttpServer server([](const ReceivedRequest&) { return LocalHttpServer::response(201, ""); });
  TempDir home;
  writeFile(home / "Private Projects/notes.txt", std::string(10000, 'x'));
  const auto r = vorlan(home, {"scan", "--no-progress", "--share-preview"}, {{"VORLAN_TELEMETRY_URL", server.base()}});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(server.requests().empty());
  EXPECT_TRUE(r.err.contains(Telemetry::consentSummary)) << r.err;
  const auto at = r.out.find("\n{\"payload\":");  // the body is one line of its own
  ASSERT_NE(at, std::string::npos) << r.out;
  EXPECT_EQ(nlohmann::json::parse(r.out.substr(at, r.out.find('\n', at + 1) - at))["payload"]["app_version"], kVersion);
  EXPECT_FALSE(r.out.contains("Private Projects")) << "a personal folder name is never in the body";
}

TEST(NetworkCli, ShareSendsTheMaskedReportAndAFailureCostsOneLine) {
  const struct { const char* name; int status; bool configured; } cases[] = {
      {"accepted", 201, true}, {"refused", 401, true}, {"no back-end", 201, false}};
  for (const auto& c : cases) {
    LocalHttpServer server([&](const ReceivedRequest&) { return LocalHttpServer::response(c.status, ""); });
    TempDir home;
    fs::create_directories(home / "Private Projects");
    const auto r = vorlan(home, {"scan", "--no-progress", "--share"},
                          {{"VORLAN_TELEMETRY_URL", c.configured ? server.base() : ""}});
    EXPECT_EQ(r.exitCode, 0) << c.name << ": " << r.err;
    // The consent text, then at most one line about the sending.
    const std::string consent = std::string(Telemetry::consentSummary) + "\n";
    ASSERT_TRUE(r.err.starts_with(consent)) << r.err;
    EXPECT_LE(std::ranges::count(r.err.substr(consent.size()), '\n'), 1) << c.name << ": " << r.err;
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), c.configured ? 1u : 0u) << c.name;
    if (c.configured) { EXPECT_FALSE(requests[0].body.contains("Private Projects")) << requests[0].body; }
  }
}

// Nothing left to delete after the last look: the refusals are still sent.
TEST(NetworkCli, CleanWithNothingToDeleteStillSendsTheRefusals) {
  LocalHttpServer server([](const ReceivedRequest&) { return LocalHttpServer::response(201, ""); });
  TempDir home;
  allocateFile(home / "Library/Caches/com.gone.app/blob", 60'000'000);  // ticked by the plan
  allocateFile(home / "Library/Caches/com.test.busy/blob", 60'000'000);  // a running program's
  TempDir bin;
  fs::copy_file("/bin/sleep", bin / "com.test.busy");
  const auto sleeper = std::async(std::launch::async, [&] { return runProcess({(bin / "com.test.busy").string(), "2"}); });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // only to let it start; not a check
  const auto r = vorlan(home, {"clean", "--yes", "--share", "--no-progress", "Library/Caches/com.test.busy"},
                        {{"VORLAN_TELEMETRY_URL", server.base()}});
  EXPECT_TRUE(r.out.contains("지울 항목이 없습니다.")) << r.out << "\n" << r.err;
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u) << r.err;
  const auto payload = nlohmann::json::parse(requests[0].body)["payload"];
  EXPECT_EQ(payload["event"], "unchecked");
  EXPECT_EQ(payload["items"][0]["path"], "Library/Caches/com.gone.app");
}

}  // namespace
}  // namespace vorlan::test

// The command line's network features end to end: the built `vorlan` against a local server,
// with a temporary home folder.
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <thread>
#include <nlohmann/json.hpp>

#include "network/LocalHttpServer.hpp"
#include "network/Telemetry.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::test {
namespace {

namespace fs = std::filesystem;
const std::string kVersion(Telemetry::appVersion);

// No deployment value of the build and no proxy of the machine may leak into these runs.
ProcessOutcome vorlan(const TempDir& home, std::vector<std::string> args, std::map<std::string, std::string> env) {
  env.insert({{"VORLAN_TELEMETRY_URL", ""}, {"VORLAN_TELEMETRY_ANON_KEY", "anon-key"}, {"VORLAN_UPDATE_ENDPOINT", ""},
              {"VORLAN_EXPLAIN_ENDPOINT", ""}, {"no_proxy", "127.0.0.1"}, {"NO_PROXY", "127.0.0.1"}});
  return runCli(home.path(), std::move(args), {.env = std::move(env)});
}

// A plain-http link and a broken answer are the update check's own tests; here the command
// line passes its own version and prints what it found, and nothing when nobody answers.
TEST(NetworkCli, VersionIsTheLiteralAndTellsOfANewerPublishedOne) {
  const struct { const char* name; std::string version, extraLine; } cases[] = {
      {"newer", "9.1.0", "새 버전이 나왔습니다: 9.1.0 — https://vorlan.example/get\n"}, {"same", kVersion, ""},
      {"nobody listening", "9.1.0", ""}};
  for (const auto& c : cases) {
    auto server = std::make_optional<LocalHttpServer>([&](const ReceivedRequest&) {
      return LocalHttpServer::response(200, R"({"version":")" + c.version + R"(","url":"https://vorlan.example/get"})");
    });
    const std::string endpoint = server->base();
    if (c.name == std::string_view("nobody listening")) server.reset();  // nobody listens there any more
    TempDir home;
    const auto r = vorlan(home, {"--version"}, {{"VORLAN_UPDATE_ENDPOINT", endpoint}});
    EXPECT_EQ(r.exitCode, 0) << c.name;
    EXPECT_EQ(r.out, "vorlan " + kVersion + "\n" + c.extraLine) << c.name;
    EXPECT_EQ(r.err, "") << c.name;
  }
}

TEST(NetworkCli, ShareSendsTheMaskedReportAPreviewSendsNothingAndAFailureCostsOneLine) {
  const std::string consent = std::string(Telemetry::consentSummary) + "\n";
  const struct { const char* name; std::string flag; int status; bool configured; size_t sent; } cases[] = {
      {"accepted", "--share", 201, true, 1}, {"refused", "--share", 401, true, 1},
      {"no back-end", "--share", 201, false, 0}, {"preview", "--share-preview", 201, true, 0}};
  for (const auto& c : cases) {
    LocalHttpServer server([&](const ReceivedRequest&) { return LocalHttpServer::response(c.status, ""); });
    TempDir home;
    writeFile(home / "Private Projects/notes.txt", std::string(10000, 'x'));
    const auto r = vorlan(home, {"scan", "--no-progress", c.flag},
                          {{"VORLAN_TELEMETRY_URL", c.configured ? server.base() : ""}});
    EXPECT_EQ(r.exitCode, 0) << c.name << ": " << r.err;
    // The consent text, then at most one line about the sending.
    ASSERT_TRUE(r.err.starts_with(consent)) << c.name << ": " << r.err;
    EXPECT_LE(std::ranges::count(r.err.substr(consent.size()), '\n'), 1) << c.name << ": " << r.err;
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), c.sent) << c.name;
    for (const auto& request : requests) EXPECT_FALSE(request.body.contains("Private Projects")) << request.body;
    // Only the preview prints the body, on one line of its own, and no personal folder name in it.
    const auto at = r.out.find("\n{\"payload\":");
    ASSERT_EQ(at != std::string::npos, c.flag == "--share-preview") << c.name << ": " << r.out;
    if (at == std::string::npos) continue;
    EXPECT_EQ(nlohmann::json::parse(r.out.substr(at, r.out.find('\n', at + 1) - at))["payload"]["app_version"], kVersion);
    EXPECT_FALSE(r.out.contains("Private Projects")) << r.out;
  }
}

// Nothing left to delete after the last look: the refusals are still sent.
TEST(NetworkCli, CleanWithNothingToDeleteStillSendsTheRefusals) {
  LocalHttpServer server([](const ReceivedRequest&) { return LocalHttpServer::response(201, ""); });
  TempDir home, bin;
  allocateFile(home / "Library/Caches/com.gone.app/blob", 60'000'000);   // ticked by the plan
  allocateFile(home / "Library/Caches/com.test.busy/blob", 60'000'000);  // a running program's
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
